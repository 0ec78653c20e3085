// The flat functions of a handle itself: its life, its events, what an application keeps with it.

#include "api/flat/Adapters.h"

using namespace Velmora;
using Flat::CallbackScope;
using Flat::plain;

namespace {

constexpr void (CloudAPI::*pump)() = &CloudAPI::processEvents;
constexpr bool (CloudAPI::*pumpFor)(int) = &CloudAPI::processEvents;

thread_local CallbackScope *innermost = nullptr;

} // namespace

CallbackScope::CallbackScope(CloudAPI *api)
    : m_api(api)
    , m_outer(std::exchange(innermost, this))
{
}

CallbackScope::~CallbackScope() { innermost = m_outer; }

CloudAPI *CallbackScope::current() { return innermost ? innermost->m_api : nullptr; }

void CallbackScope::forget(const CloudAPI *api)
{
    for (CallbackScope *scope = innermost; scope; scope = scope->m_outer) {
        if (scope->m_api == api)
            scope->m_api = nullptr;
    }
}

VelmoraCloudAPI *CreateCloudAPI() { return new CloudAPI; }

void DestroyCloudAPI(VelmoraCloudAPI *api)
{
    CallbackScope::forget(api);
    delete api;
}

void setUserData(VelmoraCloudAPI *api, void *data)
{
    if (api)
        CloudAPIImpl::of(*api).userData = data;
}

void *userData(VelmoraCloudAPI *api) { return api ? CloudAPIImpl::of(*api).userData : nullptr; }

VelmoraCloudAPI *currentCloudAPI() { return CallbackScope::current(); }

void processEvents(VelmoraCloudAPI *api) { plain(api, pump); }

bool waitForEvents(VelmoraCloudAPI *api, int milliseconds) { return plain(api, pumpFor, milliseconds); }
