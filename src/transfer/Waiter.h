#pragma once

#include <velmora/Records.h>

#include <QByteArray>
#include <QJsonObject>
#include <QObject>
#include <QPointer>

#include <functional>

namespace Velmora {

/// Why a value cannot be had; code 200 when it can.
struct GrantError : ApiError {
    bool mayPass = false; ///< the service did not answer, or could not right now
};

/// Who waits for a value, and what happens with it: `then` is called with the value, or with the error, unless
/// `context` is destroyed first.
template <class Value> struct Waiter {
    QPointer<QObject> context;
    std::function<void(const GrantError &, const Value &)> then;

    void operator()(const GrantError &error, const Value &value) const
    {
        if (context)
            then(error, value);
    }
};

/// The address for the uploads of a job, or the addresses of the pieces of a file.
struct Grant {
    QJsonObject address; ///< as the portal describes it; that of a file: "chunks", and "version", its state
    /// Milliseconds for which it may still be used; below 0 it may not. Empty: nothing was granted.
    std::function<qint64()> left = {};
};

// What a transfer asks the portal for. The value is empty on failure. May be called from inside a signal of the network
// layer.
using EncryptionKeyCB = Waiter<QByteArray>;
using UploadUrlCB = Waiter<Grant>;
using DownloadUrlCB = Waiter<Grant>;

} // namespace Velmora
