#include "commands/Commands.h"

#include "common/Json.h"
#include "common/Output.h"
#include "session/Session.h"

namespace Velmora::Cli {

namespace {

using TagList = std::list<ItemTag>;

QJsonObject documentOf(const char *key, const std::string &id, const TagList &list)
{
    return {{QLatin1String(key), QString::fromStdString(id)}, {QStringLiteral("itemTagList"), toJsonArray(list)}};
}

void printTags(const Options &options, const char *key, const std::string &id, const TagList &list)
{
    print(options, documentOf(key, id, list), [&] {
        Table table({{QStringLiteral("TAG"), Align::Left, true}, {QStringLiteral("TYPE"), Align::Left}});
        for (const ItemTag &entry : list)
            table.add({shown(entry.tagText), shown(entry.tagType)});
        return fitted(table);
    });
}

TagList tagsOfAccount(Session &session, const std::string &accountId)
{
    return session.get<TagList>([&](const auto &done) { session.api().getAllAccountTags(accountId, done); });
}

void printTagsOfAllAccounts(const Options &options, Session &session)
{
    const auto accountList =
        session.get<std::list<AccountDetails>>([&](const auto &done) { session.api().getAccountList(done); });
    QJsonArray documents;
    Table table({{QStringLiteral("ACCOUNT"), Align::Left},
                 {QStringLiteral("TAG"), Align::Left, true},
                 {QStringLiteral("TYPE"), Align::Left}});
    for (const AccountDetails &account : accountList) {
        const TagList list = tagsOfAccount(session, account.accountId);
        documents.append(documentOf("accountId", account.accountId, list));
        for (const ItemTag &entry : list)
            table.add({shown(account.accountId), shown(entry.tagText), shown(entry.tagType)});
    }
    print(options, {{QStringLiteral("accountTagList"), documents}}, [&] { return fitted(table); });
}

} // namespace

void tag(const Options &options)
{
    Session session(options);
    session.signIn();
    const auto list = session.get<TagList>(
        [&](const auto &done) { session.api().tagJob(options.jobId, options.tags.front(), done); });
    printTags(options, "jobId", options.jobId, list);
}

void untag(const Options &options)
{
    Session session(options);
    session.signIn();
    const auto list = session.get<TagList>(
        [&](const auto &done) { session.api().untagJob(options.jobId, options.tags.front(), done); });
    printTags(options, "jobId", options.jobId, list);
}

void tags(const Options &options)
{
    Session session(options);
    session.signIn();
    if (!options.jobId.empty())
        printTags(options, "jobId", options.jobId,
                  session.get<TagList>([&](const auto &done) { session.api().getJobTags(options.jobId, done); }));
    else if (!options.accountId.empty())
        printTags(options, "accountId", options.accountId, tagsOfAccount(session, options.accountId));
    else
        printTagsOfAllAccounts(options, session);
}

void find(const Options &options)
{
    Session session(options);
    session.signIn();
    const std::list<std::string> wanted(options.tags.begin(), options.tags.end());
    auto list =
        session.get<std::list<JobDetails>>([&](const auto &done) { session.api().searchUserTags(wanted, done); });
    sortNewestFirst(list);
    print(options, jobListJson(list), [&] { return fitted(jobTable(list)); });
}

} // namespace Velmora::Cli
