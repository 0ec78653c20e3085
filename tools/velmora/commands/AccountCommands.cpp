#include "commands/Commands.h"

#include "common/Json.h"
#include "common/Output.h"
#include "session/Session.h"

namespace Velmora::Cli {

namespace {

QString hours(double value) { return QString::number(value, 'f', 2); }
QString yesNo(bool value) { return value ? QStringLiteral("yes") : QStringLiteral("no"); }

QString balanceText(const AccountBalance &result)
{
    Table table({{QStringLiteral("DATE"), Align::Left},
                 {QStringLiteral("CORE HOURS"), Align::Right},
                 {QStringLiteral("TYPE"), Align::Left},
                 {QStringLiteral("JOB"), Align::Left},
                 {QStringLiteral("USER"), Align::Left, true},
                 {QStringLiteral("DESCRIPTION"), Align::Left, true}});
    for (const AccountTransaction &entry : result.recentTransactions)
        table.add({dateText(entry.transactionDate).left(16), hours(entry.transactionAmount),
                   shown(entry.transactionType).toLower(), shown(entry.jobId), shown(entry.userEmail),
                   shown(entry.transactionDescription)});
    return fitted(Facts{{"Account", shown(result.accountId)},
                        {"Core hours available", hours(result.coreHoursAvailable)}}) +
           QLatin1Char('\n') + fitted(table);
}

} // namespace

void accounts(const Options &options)
{
    Session session(options);
    session.signIn();
    const auto list =
        session.get<std::list<AccountDetails>>([&](const auto &done) { session.api().getAccountList(done); });
    print(options, {{QStringLiteral("accountDetailsList"), toJsonArray(list)}}, [&] {
        Table table({{QStringLiteral("ACCOUNT"), Align::Left},
                     {QStringLiteral("NAME"), Align::Left, true},
                     {QStringLiteral("PLAN"), Align::Left},
                     {QStringLiteral("BILLING"), Align::Left},
                     {QStringLiteral("OVERAGE"), Align::Left},
                     {QStringLiteral("ADMIN"), Align::Left},
                     {QStringLiteral("MAX CORE HOURS"), Align::Right}});
        for (const AccountDetails &entry : list)
            table.add({shown(entry.accountId), shown(entry.accountName), shown(entry.planCode).toLower(),
                       yesNo(entry.billingEnabled), yesNo(entry.overageEnabled),
                       yesNo(entry.accountAccess.accountAdmin),
                       QString::number(entry.accountAccess.maxCoreHourRequest)});
        return fitted(table);
    });
}

void balance(const Options &options)
{
    Session session(options);
    session.signIn();
    auto result = session.get<AccountBalance>(
        [&](const auto &done) { session.api().getAccountBalance(options.accountId, done); });
    if (result.accountId.empty())
        result.accountId = options.accountId;
    print(options, toJson(result), [&] { return balanceText(result); });
}

void me(const Options &options)
{
    Session session(options);
    session.signIn();
    auto user = session.get<UserDetails>([&](const auto &done) { session.api().getCurrentUserDetails(done); });
    // The service replaces all three values at once.
    if (options.firstName || options.lastName || options.company)
        user = session.get<UserDetails>([&](const auto &done) {
            session.api().modifyCurrentUserDetails(options.lastName.value_or(user.surname),
                                                   options.firstName.value_or(user.forename),
                                                   options.company.value_or(user.companyName), done);
        });
    print(options, toJson(user), [&] {
        return fitted(Facts{{"User", shown(user.userId)},
                            {"E-mail", shown(user.userEmail)},
                            {"First name", shown(user.forename)},
                            {"Last name", shown(user.surname)},
                            {"Company", shown(user.companyName)}});
    });
}

void hpc(const Options &options)
{
    Session session(options);
    session.signIn();
    const auto list = session.get<std::list<HpcDetails>>([&](const auto &done) {
        if (options.preferred)
            session.api().getHpcPreferenceList(options.accountId, done);
        else
            session.api().getHpcList(options.accountId, done);
    });
    print(options, {{QStringLiteral("hpcDetailsList"), toJsonArray(list)}}, [&] {
        Table table({{QStringLiteral("CLUSTER"), Align::Left},
                     {QStringLiteral("NAME"), Align::Left, true},
                     {QStringLiteral("ACTIVE"), Align::Left},
                     {QStringLiteral("CLOUD"), Align::Left},
                     {QStringLiteral("REGION"), Align::Left},
                     {QStringLiteral("DESCRIPTION"), Align::Left, true}});
        for (const HpcDetails &entry : list)
            table.add({shown(entry.hpcId), shown(entry.hpcClusterName), yesNo(entry.hpcActive), shown(entry.hpcCloud),
                       shown(entry.hpcRegion), shown(entry.hpcDescription)});
        return fitted(table);
    });
}

void event(const Options &options)
{
    Session session(options);
    session.signIn();
    session.get<bool>([&](const auto &done) {
        session.api().sendUserEvent(options.eventType, options.eventSource, options.eventValue,
                                    [done](const ApiError &error) { done(error, true); });
    });
    QJsonObject document{{QStringLiteral("eventType"), QString::fromStdString(options.eventType)},
                         {QStringLiteral("eventSource"), QString::fromStdString(options.eventSource)}};
    if (!options.eventValue.empty())
        document.insert(QStringLiteral("eventValue"), QString::fromStdString(options.eventValue));
    print(options, document,
          [&] { return QStringLiteral("sent %1 of %2\n").arg(shown(options.eventType), shown(options.eventSource)); });
}

} // namespace Velmora::Cli
