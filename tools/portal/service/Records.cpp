#include "portal/service/Records.h"

namespace VelmoraPortal {

Json toJson(const User &user)
{
    return {{"userId", user.id},
            {"cognitoEmail", user.email},
            {"lastName", user.lastName},
            {"firstName", user.firstName},
            {"companyName", user.companyName}};
}

Json toJson(const Account &account, const User &user)
{
    const Access access = account.access.at(user.email);
    return {{"account",
             {{"accountId", account.id},
              {"accountName", account.name},
              {"overageEnabled", account.overageEnabled},
              {"billingEnabled", account.billingEnabled},
              {"planCode", account.planCode},
              {"accountCreated", account.created}}},
            {"accountAccess",
             {{"accountId", account.id},
              {"cognitoEmail", user.email},
              {"maxCoreHourRequest", access.maxCoreHourRequest},
              {"accountAdmin", access.admin},
              {"hasMFA", !user.mfaCode.empty()}}}};
}

Json balanceJson(const Account &account, const std::vector<User> &users)
{
    Json transactions = Json::array();
    for (const Transaction &transaction : account.transactions) {
        std::string userId;
        for (const User &user : users)
            if (user.email == transaction.email)
                userId = user.id;
        const bool purchase = transaction.type == "PURCHASE";
        transactions.push_back({{"accountId", account.id},
                                {"transactionId", transaction.id},
                                {"jobId", transaction.jobId},
                                {"simulationId", ""},
                                {"transactionType", transaction.type},
                                {"transactionDescription", transaction.description},
                                {"cognitoEmail", transaction.email},
                                {"userId", userId},
                                {"transactionAmount", transaction.amount},
                                {"transactionDate", transaction.date},
                                {"invoiceSubmitted", purchase},
                                {"invoiceRequired", purchase},
                                {"invoiceAccepted", purchase}});
    }
    return {{"accountId", account.id},
            {"coreHoursAvailable", account.coreHours},
            {"recentTransactions", std::move(transactions)}};
}

Json toJson(const Cluster &cluster, const Account &account)
{
    return {{"hpcId", cluster.id},
            {"hpcActive", cluster.active},
            {"hpcCloud", cluster.cloud},
            {"hpcClusterName", cluster.name},
            {"hpcDescription", cluster.description},
            {"hpcRegion", cluster.region},
            {"hpcAccountBucket", "velmora-" + account.id + "-" + cluster.region}};
}

Json toJson(const Job &job)
{
    Json simulations = Json::array();
    for (const Simulation &simulation : job.simulations) {
        Json history = Json::array();
        for (const StatusEntry &entry : simulation.history)
            history.push_back({{"jobId", job.id},
                               {"simulationId", simulation.id},
                               {"simulationStatus", entry.status},
                               {"simulationStatusDate", entry.date}});
        simulations.push_back({{"simulationId", simulation.id},
                               {"consoleParameters", "-noterm -s " + simulation.consoleParameters},
                               {"simulationStatus", std::move(history)}});
    }
    Json history = Json::array();
    for (const StatusEntry &entry : job.history)
        history.push_back({{"jobId", job.id}, {"jobStatus", entry.status}, {"jobStatusDate", entry.date}});
    return {{"jobId", job.id},
            {"accountId", job.accountId},
            {"jobName", job.name},
            {"dockerTag", job.dockerTag},
            {"coresRequired", job.cores},
            {"coreHourEstimate", job.coreHourEstimate},
            {"ramEstimate", job.ram},
            {"mainFile", job.mainFile},
            {"precision", job.precision},
            {"numberOfParts", job.parts},
            {"operation", job.operation},
            {"jobType", job.type},
            {"fileDependencies", job.dependencies},
            {"fileAliases", job.aliases},
            {"simulations", std::move(simulations)},
            {"jobStatus", std::move(history)}};
}

Json progressJson(const Job &job)
{
    Json list = Json::array();
    for (const Simulation &simulation : job.simulations)
        list.push_back({{"simulationId", simulation.id}, {"progress", simulation.progress}});
    return {{"jobId", job.id}, {"simulationProgressList", std::move(list)}};
}

Json toJson(const Tag &tag) { return {{"tag", tag.tag}, {"type", tag.type}}; }

Json toJson(const std::string &jobId, const StoredFile &file)
{
    return {{"jobId", jobId},        {"fileName", file.name}, {"fileSize", file.size},
            {"fileDate", file.date}, {"fileHash", file.hash}, {"directory", false}};
}

Json toJson(const State &state, const Store &store)
{
    Json users = Json::array();
    for (const User &user : state.users) {
        users.push_back(toJson(user));
        users.back()["hasMFA"] = !user.mfaCode.empty();
    }
    Json accounts = Json::array();
    for (const auto &item : state.accounts)
        accounts.push_back(balanceJson(item.second, state.users));
    Json jobs = Json::array();
    for (const Job &job : state.jobs) {
        jobs.push_back(toJson(job));
        jobs.back()["cognitoEmail"] = job.email;
        jobs.back()["application"] = job.application;
        jobs.back()["status"] = job.status();
        jobs.back()["progress"] = progressJson(job)["simulationProgressList"];
        for (const Tag &tag : job.tags)
            jobs.back()["tags"].push_back(toJson(tag));
        for (const auto &item : store.files(job.id))
            jobs.back()["files"].push_back(toJson(job.id, item.second));
        for (const Simulation &simulation : job.simulations)
            if (!simulation.problem.empty())
                jobs.back()["problems"][simulation.id] = simulation.problem;
    }
    Json reservations = Json::array();
    for (const auto &[id, reservation] : state.reservations)
        reservations.push_back({{"jobId", id},
                                {"cognitoEmail", reservation.email},
                                {"accountId", reservation.accountId},
                                {"hpcId", reservation.clusterId}});
    Json events = Json::array();
    for (const UserEvent &event : state.events)
        events.push_back({{"cognitoEmail", event.email},
                          {"eventType", event.type},
                          {"eventSource", event.source},
                          {"eventValue", event.value},
                          {"eventDate", event.date}});
    return {{"users", std::move(users)},
            {"accounts", std::move(accounts)},
            {"jobs", std::move(jobs)},
            {"reservations", std::move(reservations)},
            {"events", std::move(events)}};
}

} // namespace VelmoraPortal
