#pragma once

// The parts of a session, for tests that look behind the public class. Only for test programs, which link the library's
// objects.

#include "api/CloudAPIImpl.h"

#include <QtNetwork>

inline Velmora::CloudAPIImpl &partsOf(const Velmora::CloudAPI &api) { return Velmora::CloudAPIImpl::of(api); }

inline QNetworkAccessManager &networkOf(const Velmora::CloudAPI &api)
{
    return *partsOf(api).rest.findChild<QNetworkAccessManager *>();
}

inline QTimer *renewalTimerOf(const Velmora::CloudAPI &api)
{
    return partsOf(api).session.findChild<QTimer *>(QStringLiteral("renewal"));
}

/// Null while no job is subscribed.
inline QTimer *heartbeatOf(const Velmora::CloudAPI &api)
{
    return partsOf(api).sockets.findChild<QTimer *>(QStringLiteral("heartbeat"));
}
