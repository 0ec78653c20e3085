#pragma once

// Reaches private members of the library that tests look at: an explicit instantiation may name them.
// Only for test programs, which link the library's objects.

#include "api/CloudAPIImpl.h"

#include <QNetworkReply>

namespace {

/// The private member of that type, once `Open` was instantiated with it.
template <class Member> Member opened;
template <auto member> struct Open {
    static inline const auto done = opened<decltype(member)> = member;
};

template struct Open<&Velmora::CloudAPI::m_impl>;
template struct Open<&Velmora::CloudAPIImpl::m_network>;
template struct Open<&Velmora::CloudAPIImpl::m_refreshTimer>;

template <class Value, class Owner> Value &inside(Owner &owner) { return owner.*opened<Value Owner::*>; }

inline Velmora::CloudAPIImpl &implOf(Velmora::CloudAPI &api) { return *inside<Velmora::CloudAPIImpl *>(api); }
inline QNetworkAccessManager &networkOf(Velmora::CloudAPI &api)
{
    return *inside<std::unique_ptr<QNetworkAccessManager>>(implOf(api));
}
/// Null until the first token reply.
inline QTimer *renewalTimerOf(Velmora::CloudAPI &api) { return inside<std::unique_ptr<QTimer>>(implOf(api)).get(); }

} // namespace
