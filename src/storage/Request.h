#pragma once

#include <QByteArray>
#include <QString>

#include <memory>
#include <optional>
#include <utility>
#include <vector>

namespace Velmora {

class Sink;
class Source;

/// A request to the storage, described.
struct StorageRequest {
    QByteArray verb = "GET"; ///< with a body POST or PUT
    QByteArray address;
    std::vector<std::pair<QByteArray, QByteArray>> headers; ///< none that frames the body
    std::shared_ptr<Source> body = {};                      ///< null: none
    QByteArray form = {};                                   ///< a body that is short, without `body`
    std::shared_ptr<Sink> sink = {};                        ///< takes the body of an answer with the status 200
    qint64 expected = 0;                                    ///< bytes for the sink, about; 0: not known
    qint64 offset = 0;                                      ///< bytes that the sink has; those behind them are wanted
    QByteArray etag = {};                                   ///< of the answer that they came with, a strong one
    qint64 validFor = 0;    ///< milliseconds in which its turn must come; 0: no matter when
    bool hasWaited = false; ///< for its turn, with another address: goes before the others

    // Names in any case of letters.
    bool hasHeader(const QByteArray &name) const;
    void setHeader(const QByteArray &name, const QByteArray &value);
};

/// What came back for it.
struct StorageAnswer {
    int status = 0;            ///< the HTTP status; 0 when there was none
    QByteArray body;           ///< at most the first 64 KiB
    QString problem;           ///< what is wrong with it, without the query of an address; empty when all went well
    bool isBroken = false;     ///< the connection failed, or could not be made; another try may succeed
    bool isOutdated = false;   ///< nothing was sent: its turn came too late
    bool isRangeWrong = false; ///< the storage does not give what is behind `offset`
    QByteArray etag = {};      ///< of the bytes in the sink, if it is a strong one
};

/// An address, split at what connects and what is asked for.
struct Target {
    QByteArray server; ///< "https://host:port"
    QByteArray path;   ///< path and query, as the request line holds them
};

/// Empty for an address that names no web server, or holds a user's name. The path is left as it is, but for bytes that
/// no request line may hold: they are percent-encoded.
std::optional<Target> targetOf(const QByteArray &address);

} // namespace Velmora
