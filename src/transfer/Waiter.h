#pragma once

#include <velmora/Records.h>

#include <QByteArray>
#include <QJsonObject>
#include <QObject>
#include <QPointer>

#include <functional>

namespace Velmora {

/// Who waits for a value, and what happens with it: `then` is called with the value, or with the error, unless
/// `context` is destroyed first.
template <class Value> struct Waiter {
    QPointer<QObject> context;
    std::function<void(const ApiError &, const Value &)> then;

    void operator()(const ApiError &error, const Value &value) const
    {
        if (context)
            then(error, value);
    }
};

// What a transfer asks the portal for. The value is empty on failure. May be called from inside a signal of the network
// layer.
using EncryptionKeyCB = Waiter<QByteArray>;
using UploadUrlCB = Waiter<QJsonObject>;
using DownloadUrlCB = Waiter<QJsonObject>;

} // namespace Velmora
