#pragma once

#include "model/Json.h"
#include "transport/Endpoints.h"

#include <QByteArray>
#include <QString>

#include <chrono>
#include <functional>
#include <initializer_list>
#include <list>
#include <string>
#include <utility>

namespace Velmora {

enum class Verb { Post, Get, Delete, DeleteWithBody };

/// One REST request, described.
struct Request {
    const Endpoint &endpoint;
    Verb verb = Verb::Post;
    QByteArray body = {};
    QString suffix = {}; ///< appended to the endpoint's URL as it is
    /// How long no byte of the answer may come; 0: as the options say.
    std::chrono::milliseconds silence = std::chrono::milliseconds(0);
};

namespace Detail {

template <class T> struct Reply {
    static T read(const QByteArray &body) { return readReply<T>(body); }
};
template <class T> struct Reply<std::list<T>> {
    static std::list<T> read(const QByteArray &body) { return readReplyList<T>(body); }
};

} // namespace Detail

/// An operation, described: a request, and how the body of a successful answer reads. `RestClient::call` runs it.
template <class Result> struct Call {
    Request request;
    std::function<Result(const QByteArray &body)> read = Detail::Reply<Result>::read; ///< runs on any thread
};

/// A JSON request body from text members, in the form that the service gets: indented.
inline QByteArray bodyOf(std::initializer_list<std::pair<const char *, std::string>> members)
{
    QJsonObject object;
    for (const auto &[key, value] : members)
        object.insert(QLatin1String(key), toQt(value));
    return toText(object);
}

} // namespace Velmora
