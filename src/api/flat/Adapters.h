#pragma once

#include "api/CloudAPIImpl.h"
#include "api/flat/Views.h"
#include "transport/Call.h"

#include <velmora/CloudAPI.h>

#include <cstdint>
#include <functional>

// What every flat function does, written once. `plain` and `json` check the handle, convert each argument to the type
// that the member takes, and adapt callbacks. They differ in how results reach the application.

namespace Velmora::Flat {

/// Held while a callback of the application runs, for `currentCloudAPI`.
class CallbackScope {
public:
    explicit CallbackScope(CloudAPI *api);
    ~CallbackScope();
    CallbackScope(const CallbackScope &) = delete;
    CallbackScope &operator=(const CallbackScope &) = delete;

    /// Of the innermost callback that runs on this thread; null if there is none, or its session was destroyed.
    static CloudAPI *current();
    /// The session is about to be destroyed.
    static void forget(const CloudAPI *api);

private:
    CloudAPI *m_api;
    CallbackScope *m_outer;
};

/// Results as views.
struct Plain {
    template <class T> class Result {
    public:
        explicit Result(const T &value)
            : m_view(toView(value))
        {
        }
        operator const decltype(toView(std::declval<const T &>())) * () const { return &m_view; }

    private:
        decltype(toView(std::declval<const T &>())) m_view;
    };
};

/// Results as JSON text.
struct Json {
    template <class T> class Result {
    public:
        explicit Result(const T &value)
            : m_text(outputText(value))
        {
        }
        operator const char *() const { return m_text.c_str(); }

    private:
        std::string m_text;
    };
};

/// A list in the form that the application gets, made where the answer is read. It can be moved, because that leaves
/// the elements of a list where they are.
template <class Form, class List> class Made {
public:
    explicit Made(List &&list = {})
        : m_list(std::move(list))
        , m_result(m_list)
    {
        if constexpr (std::is_same_v<Form, Json>)
            m_list.clear(); // the text has it all
    }
    const auto &result() const { return m_result; }

private:
    List m_list;
    typename Form::template Result<List> m_result;
};
template <class T> struct IsMade : std::false_type {
};
template <class Form, class List> struct IsMade<Made<Form, List>> : std::true_type {
};

/// One argument of the application's callback. What it points to lives until the end of the full expression.
template <class Form, class T> decltype(auto) handOver(const T &value)
{
    if constexpr (std::is_same_v<T, std::string>)
        return value.c_str();
    else if constexpr (std::is_same_v<T, bool>)
        return value;
    else if constexpr (std::is_same_v<T, std::int64_t>)
        return static_cast<std::int32_t>(value); // the low 32 bits
    else if constexpr (std::is_enum_v<T>)
        return static_cast<int>(value);
    else if constexpr (IsMade<T>::value)
        return value.result();
    else
        return typename Form::template Result<T>(value);
}

template <class Form, class... Values, class... Arguments>
void adapt(CloudAPI *api, std::function<void(Values...)> &adapter, void (*callback)(Arguments...))
{
    if (!callback)
        return;
    adapter = [api, callback](Values... values) {
        const CallbackScope running(api);
        callback(handOver<Form>(values)...);
    };
}

/// A record that the application passed as text. A list comes as an array of the texts of its elements.
template <class T> T fromText(const QByteArray &text)
{
    if constexpr (Detail::IsList<T>::value) {
        T list;
        for (const QJsonValue &element : QJsonDocument::fromJson(text).array())
            list.push_back(readInput<typename T::value_type>(element.toString().toUtf8()));
        return list;
    } else {
        return readInput<T>(text);
    }
}

/// An argument of the application as a member takes it. A null text or record reads as an empty one.
template <class Form, class Wanted, class Given>
decltype(auto) argument([[maybe_unused]] CloudAPI *api, const Given &given)
{
    if constexpr (std::is_same_v<Given, Wanted>) {
        return static_cast<const Wanted &>(given);
    } else if constexpr (std::is_same_v<Given, const char *>) {
        if constexpr (std::is_same_v<Wanted, std::string>)
            return std::string(given ? given : "");
        else
            return fromText<Wanted>(given);
    } else if constexpr (std::is_same_v<Given, const Wanted *>) {
        static const Wanted empty{};
        return given ? *given : empty;
    } else {
        Wanted adapter;
        adapt<Form>(api, adapter, given);
        return adapter;
    }
}

template <class Form> struct Forward {
    template <class Result, class... Parameters, class... Arguments>
    Result operator()(CloudAPI *api, Result (CloudAPI::*member)(Parameters...), const Arguments &...arguments) const
    {
        return api ? (api->*member)(argument<Form, std::decay_t<Parameters>>(api, arguments)...) : Result();
    }
    template <class Result> Result operator()(const CloudAPI *api, Result (CloudAPI::*member)() const) const
    {
        return api ? (api->*member)() : Result();
    }

    // Long lists go past the class, whose callbacks run on the owner's thread: what the application gets of them is
    // made, and released, on the thread that reads the answer.

    template <class List, class Callback, class... Parameters, class... Arguments>
    void list(CloudAPI *api, Callback onComplete, Call<List> (*operation)(Parameters...),
              const Arguments &...arguments) const
    {
        if (!api)
            return;
        using Result = Made<Form, List>;
        const auto [request, read] = operation(argument<Form, std::decay_t<Parameters>>(api, arguments)...);
        const auto make = [read = read](const QByteArray &body) { return Result(read(body)); };
        CloudAPIImpl::of(*api).rest.call(Call<Result>{request, make}, completion<Result>(api, onComplete));
    }
    /// @param listing  see operations/Files.h
    template <class Callback, class... Parameters, class... Arguments>
    void files(CloudAPI *api, Callback onComplete, bool showAllFiles, QString (*listing)(Parameters...),
               const Arguments &...arguments) const
    {
        if (!api)
            return;
        using Result = Made<Form, std::list<CloudFile>>;
        const QString suffix = listing(argument<Form, std::decay_t<Parameters>>(api, arguments)...);
        CloudAPIImpl::of(*api).grants.listFiles(suffix, showAllFiles, completion<Result>(api, onComplete));
    }

private:
    template <class Result, class Callback> static ResultDone<Result> completion(CloudAPI *api, Callback onComplete)
    {
        ResultDone<Result> adapter;
        adapt<Form>(api, adapter, onComplete);
        return adapter;
    }
};

constexpr Forward<Plain> plain{};
constexpr Forward<Json> json{};

} // namespace Velmora::Flat
