#pragma once

// An application of the flat functions: callbacks of every shape, and what they received.

#include "api/flat/Views.h"
#include "portal/Portal.h"
#include "support/Loopback.h"

#include <boost/preprocessor.hpp>

using namespace Velmora;

// Of the global namespace, like the views. By name, back into records, so that a view's field must be where the
// record's field of that name is.
inline std::string recordOf(const char *text) { return text; }
template <class T> std::enable_if_t<std::is_arithmetic_v<T>, T> recordOf(T value) { return value; }
template <class T> auto recordOf(const std::list<T> &views)
{
    std::list<decltype(recordOf(views.front()))> records;
    for (const T &view : views)
        records.push_back(recordOf(view));
    return records;
}

#define SAME(unused, record, name) record.name = recordOf(view.name);
#define VIEW(Record, ...)                                                                                              \
    inline Record recordOf(const Velmora##Record##View &view)                                                          \
    {                                                                                                                  \
        Record record;                                                                                                 \
        BOOST_PP_SEQ_FOR_EACH(SAME, record, BOOST_PP_VARIADIC_TO_SEQ(__VA_ARGS__))                                     \
        return record;                                                                                                 \
    }
#include "Views.inc" // of the header, one VIEW(Record, fields...) a line
#undef VIEW
#undef SAME

/// One callback of an application; converts to a function pointer of any type. Several at once: `Callback<1>` …
template <int which = 0> struct Callback {
    /// One entry per call, one text per argument. Views become the text that the `_Json` form passes, so that both
    /// forms of a function must give the same.
    static inline std::vector<std::vector<std::string>> received;
    static inline std::function<void()> then; ///< runs once, inside the callback, before it looks at its arguments

    Callback() { received.clear(); }
    template <class... Arguments> using Function = void (*)(Arguments...);
    template <class... Arguments> operator Function<Arguments...>() const { return &called<Arguments...>; }

    static const std::vector<std::string> &last() { return received.back(); }
    /// Of the last call's outcome.
    static int code() { return QJsonDocument::fromJson(last().at(0).c_str())["errorCode"].toInt(); }

private:
    template <class... Arguments> static void called(Arguments... arguments)
    {
        if (const auto once = std::exchange(then, nullptr))
            once();
        received.push_back({textOf(arguments)...});
    }
    static std::string textOf(const char *text) { return text; }
    static std::string textOf(bool flag) { return flag ? "true" : "false"; }
    static std::string textOf(std::int32_t number) { return std::to_string(number); }
    template <class View> static std::string textOf(const View *view) { return outputText(recordOf(*view)); }
};
