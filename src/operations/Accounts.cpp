// Accounts, the signed-in user, compute clusters and user events.

#include "base/Log.h"
#include "transport/Pipeline.h"

namespace Velmora {

void CloudAPIImpl::getAccountList(const ResultDone<std::list<AccountDetails>> &onComplete)
{
    callForList({RequestType::AccountList}, onComplete);
}

void CloudAPIImpl::getAccountBalance(const std::string &accountId, const ResultDone<AccountBalance> &onComplete)
{
    callForRecord({RequestType::AccountBalance, Verb::Post, bodyOf({{"accountId", accountId}})}, onComplete);
}

void CloudAPIImpl::getCurrentUserDetails(const ResultDone<UserDetails> &onComplete)
{
    callForRecord({RequestType::UserDetails}, onComplete);
}

void CloudAPIImpl::modifyCurrentUserDetails(const std::string &lastName, const std::string &firstName,
                                            const std::string &companyName, const ResultDone<UserDetails> &onComplete)
{
    const QByteArray body = bodyOf({{"lastName", lastName}, {"firstName", firstName}, {"companyName", companyName}});
    callForRecord({RequestType::UserModify, Verb::Post, body}, onComplete);
}

void CloudAPIImpl::getHpcs(bool preferredOnly, const std::string &accountId,
                           const ResultDone<std::list<HpcDetails>> &onComplete)
{
    callForList({preferredOnly ? RequestType::HpcPreference : RequestType::HpcList, Verb::Post,
                 bodyOf({{"accountId", accountId}})},
                onComplete);
}

void CloudAPIImpl::getHpcList(const std::string &accountId, const ResultDone<std::list<HpcDetails>> &onComplete)
{
    VELMORA_LOG() << "in CloudAPI::getHpcList(): ZRV call for all hpcs";
    getHpcs(false, accountId, onComplete);
}

void CloudAPIImpl::getHpcPreferenceList(const std::string &accountId,
                                        const ResultDone<std::list<HpcDetails>> &onComplete)
{
    VELMORA_LOG() << "in CloudAPI::getHpcPreferenceList(): ZRV call for all hpcs can access";
    getHpcs(true, accountId, onComplete);
}

void CloudAPIImpl::sendUserEvent(const std::string &eventType, const std::string &eventSource,
                                 const std::string &eventValue, const Done &onComplete)
{
    const QByteArray body =
        eventValue.empty()
            ? bodyOf({{"eventType", eventType}, {"eventSource", eventSource}})
            : bodyOf({{"eventType", eventType}, {"eventSource", eventSource}, {"eventValue", eventValue}});
    exchange({RequestType::UserEventAdd, Verb::Post, body},
             [this, onComplete](const Outcome &outcome) { deliver(onComplete, outcome.error); });
}

} // namespace Velmora
