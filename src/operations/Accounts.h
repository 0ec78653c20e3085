#pragma once

#include "base/Log.h"
#include "transport/Call.h"

#include <velmora/Records.h>

#include <list>
#include <string>

/// Accounts, the signed-in user, compute clusters and user events.
namespace Velmora::Accounts {

inline Call<bool> mfaEnabled(const std::string &emailAddress)
{
    return {{Endpoints::HasMfa, Verb::Post, bodyOf({{"emailAddress", emailAddress}})},
            [](const QByteArray &body) { return body == "true"; }};
}

inline Call<std::list<AccountDetails>> list() { return {{Endpoints::AccountList}}; }

inline Call<AccountBalance> balance(const std::string &accountId)
{
    return {{Endpoints::AccountBalance, Verb::Post, bodyOf({{"accountId", accountId}})}};
}

inline Call<UserDetails> user() { return {{Endpoints::UserDetails}}; }

inline Call<UserDetails> modifyUser(const std::string &lastName, const std::string &firstName,
                                    const std::string &companyName)
{
    const QByteArray body = bodyOf({{"lastName", lastName}, {"firstName", firstName}, {"companyName", companyName}});
    return {{Endpoints::UserModify, Verb::Post, body}};
}

inline Call<std::list<HpcDetails>> clusters(const std::string &accountId)
{
    VELMORA_LOG() << "in CloudAPI::getHpcList(): ZRV call for all hpcs";
    return {{Endpoints::HpcList, Verb::Post, bodyOf({{"accountId", accountId}})}};
}

inline Call<std::list<HpcDetails>> preferredClusters(const std::string &accountId)
{
    VELMORA_LOG() << "in CloudAPI::getHpcPreferenceList(): ZRV call for all hpcs can access";
    return {{Endpoints::HpcPreference, Verb::Post, bodyOf({{"accountId", accountId}})}};
}

inline Request event(const std::string &eventType, const std::string &eventSource, const std::string &eventValue)
{
    return {Endpoints::UserEventAdd, Verb::Post,
            eventValue.empty()
                ? bodyOf({{"eventType", eventType}, {"eventSource", eventSource}})
                : bodyOf({{"eventType", eventType}, {"eventSource", eventSource}, {"eventValue", eventValue}})};
}

} // namespace Velmora::Accounts
