#pragma once

// Definitions of the request pipeline's templates, for the sources that implement operations.

#include "api/CloudAPIImpl.h"
#include "base/Later.h"
#include "model/Json.h"

#include <QNetworkReply>

namespace Velmora {

template <class... Parameters, class... Values>
void CloudAPIImpl::deliver(const std::function<void(Parameters...)> &callback, Values &&...values)
{
    callLater(this, callback, std::forward<Values>(values)...);
}

template <class Handle> void CloudAPIImpl::exchange(const Request &request, Handle handle)
{
    QNetworkReply *reply = send(request);
    connect(reply, &QNetworkReply::finished, this, [reply, type = request.type, handle = std::move(handle)] {
        Outcome outcome = readOutcome(reply, type);
        reply->deleteLater();
        handle(outcome);
    });
}

template <class Read, class Then> void CloudAPIImpl::readBody(const QByteArray &body, Read read, Then then)
{
    if (body.size() < largeBody)
        return then(read(body));
    const auto result = std::make_shared<decltype(read(body))>();
    const auto reader = m_readers.emplace(m_readers.end(), &m_readerPool);
    reader->start([=](const std::atomic<bool> &) { *result = read(body); },
                  [=] {
                      m_readers.erase(reader);
                      then(std::move(*result));
                  });
}

template <class Result, class Read>
void CloudAPIImpl::call(const Request &request, Read read, const ResultDone<Result> &onComplete)
{
    exchange(request, [this, read, onComplete](const Outcome &outcome) {
        const auto complete = [this, onComplete, error = outcome.error](Result &&result) {
            deliver(onComplete, error, std::move(result));
        };
        if (outcome.failed)
            complete({});
        else
            readBody(outcome.body, read, complete);
    });
}

template <class Record> void CloudAPIImpl::callForRecord(const Request &request, const ResultDone<Record> &onComplete)
{
    call<Record>(
        request, [](const QByteArray &body) { return readReply<Record>(body); }, onComplete);
}

template <class Record>
void CloudAPIImpl::callForList(const Request &request, const ResultDone<std::list<Record>> &onComplete)
{
    call<std::list<Record>>(
        request, [](const QByteArray &body) { return readReplyList<Record>(body); }, onComplete);
}

/// A JSON request body from text members, in the form the service gets: indented.
inline QByteArray bodyOf(std::initializer_list<std::pair<const char *, std::string>> members)
{
    QJsonObject object;
    for (const auto &[key, value] : members)
        object.insert(QLatin1String(key), toQt(value));
    return toText(object);
}

} // namespace Velmora
