#pragma once

// Reaches private members of the library that tests look at: an explicit instantiation may name them.
// Only for test programs, which link the library's objects.

#include "transport/CloudAPIImpl.h"

#include <QNetworkReply>

namespace {

template <class Tag, typename Tag::Member member> struct Reach {
    friend typename Tag::Member reach(Tag) { return member; }
};

struct ImplTag {
    using Member = Velmora::CloudAPIImpl *Velmora::CloudAPI::*;
    friend Member reach(ImplTag);
};
template struct Reach<ImplTag, &Velmora::CloudAPI::m_impl>;

struct NetworkTag {
    using Member = std::unique_ptr<QNetworkAccessManager> Velmora::CloudAPIImpl::*;
    friend Member reach(NetworkTag);
};
template struct Reach<NetworkTag, &Velmora::CloudAPIImpl::m_network>;

struct TimerTag {
    using Member = std::unique_ptr<QTimer> Velmora::CloudAPIImpl::*;
    friend Member reach(TimerTag);
};
template struct Reach<TimerTag, &Velmora::CloudAPIImpl::m_refreshTimer>;

inline Velmora::CloudAPIImpl &implOf(Velmora::CloudAPI &api) { return *(api.*reach(ImplTag{})); }
inline QNetworkAccessManager &networkOf(Velmora::CloudAPI &api) { return *(implOf(api).*reach(NetworkTag{})); }
/// Null until the first token reply.
inline QTimer *renewalTimerOf(Velmora::CloudAPI &api) { return (implOf(api).*reach(TimerTag{})).get(); }

} // namespace
