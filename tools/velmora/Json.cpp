#include "Json.h"

namespace Velmora::Cli {

namespace {

QString text(const std::string &value) { return QString::fromStdString(value); }

QJsonArray texts(const std::list<std::string> &values)
{
    QJsonArray array;
    for (const std::string &value : values)
        array.append(text(value));
    return array;
}

QJsonObject toJson(const JobStatusEntry &entry)
{
    return {{QStringLiteral("jobId"), text(entry.jobId)},
            {QStringLiteral("jobStatus"), text(entry.jobStatus)},
            {QStringLiteral("jobStatusDate"), qint64(entry.jobStatusDate)}};
}

QJsonObject toJson(const SimulationStatusEntry &entry)
{
    return {{QStringLiteral("jobId"), text(entry.jobId)},
            {QStringLiteral("simulationId"), text(entry.simulationId)},
            {QStringLiteral("simulationStatus"), text(entry.simulationStatus)},
            {QStringLiteral("simulationStatusDate"), qint64(entry.simulationStatusDate)}};
}

QJsonObject toJson(const SimulationProgress &progress)
{
    return {{QStringLiteral("simulationId"), text(progress.simulationId)},
            {QStringLiteral("progress"), progress.progress}};
}

QJsonObject toJson(const AccountAccess &access)
{
    return {{QStringLiteral("accountID"), text(access.accountID)},
            {QStringLiteral("userEmail"), text(access.userEmail)},
            {QStringLiteral("maxCoreHourRequest"), access.maxCoreHourRequest},
            {QStringLiteral("accountAdmin"), access.accountAdmin},
            {QStringLiteral("hasMFA"), access.hasMFA}};
}

QJsonObject toJson(const AccountTransaction &transaction)
{
    return {{QStringLiteral("accountId"), text(transaction.accountId)},
            {QStringLiteral("transactionId"), text(transaction.transactionId)},
            {QStringLiteral("jobId"), text(transaction.jobId)},
            {QStringLiteral("simulationId"), text(transaction.simulationId)},
            {QStringLiteral("transactionType"), text(transaction.transactionType)},
            {QStringLiteral("transactionDescription"), text(transaction.transactionDescription)},
            {QStringLiteral("userEmail"), text(transaction.userEmail)},
            {QStringLiteral("userId"), text(transaction.userId)},
            {QStringLiteral("transactionAmount"), transaction.transactionAmount},
            {QStringLiteral("transactionDate"), qint64(transaction.transactionDate)},
            {QStringLiteral("invoiceSubmitted"), transaction.invoiceSubmitted},
            {QStringLiteral("invoiceRequired"), transaction.invoiceRequired},
            {QStringLiteral("invoiceAccepted"), transaction.invoiceAccepted}};
}

template <class List> QJsonArray arrayOf(const List &records)
{
    QJsonArray array;
    for (const auto &record : records)
        array.append(toJson(record));
    return array;
}

QJsonObject toJson(const SimulationDetails &simulation)
{
    return {{QStringLiteral("simulationId"), text(simulation.simulationId)},
            {QStringLiteral("consoleParameters"), text(simulation.consoleParameters)},
            {QStringLiteral("simulationStatus"), arrayOf(simulation.simulationStatus)}};
}

} // namespace

QJsonObject toJson(const ApiError &error)
{
    return {{QStringLiteral("errorCode"), error.errorCode},
            {QStringLiteral("errorTitle"), text(error.errorTitle)},
            {QStringLiteral("errorMessage"), text(error.errorMessage)}};
}

QJsonObject toJson(const JobDetails &job)
{
    QJsonArray simulations;
    for (const SimulationDetails &simulation : job.simulations)
        simulations.append(toJson(simulation));
    return {{QStringLiteral("jobId"), text(job.jobId)},
            {QStringLiteral("accountId"), text(job.accountId)},
            {QStringLiteral("jobName"), text(job.jobName)},
            {QStringLiteral("dockerTag"), text(job.dockerTag)},
            {QStringLiteral("coresRequired"), job.coresRequired},
            {QStringLiteral("coreHourEstimate"), job.coreHourEstimate},
            {QStringLiteral("ramEstimate"), job.ramEstimate},
            {QStringLiteral("mainFile"), text(job.mainFile)},
            {QStringLiteral("precision"), text(job.precision)},
            {QStringLiteral("numberOfParts"), job.numberOfParts},
            {QStringLiteral("fileDependencies"), texts(job.fileDependencies)},
            {QStringLiteral("fileAliases"), texts(job.fileAliases)},
            {QStringLiteral("operation"), text(job.operation)},
            {QStringLiteral("simulations"), simulations},
            {QStringLiteral("jobStatus"), arrayOf(job.jobStatus)},
            {QStringLiteral("jobType"), text(job.jobType)}};
}

QJsonObject toJson(const JobProgress &progress)
{
    return {{QStringLiteral("jobId"), text(progress.jobId)},
            {QStringLiteral("simulationProgressList"), arrayOf(progress.simulationProgressList)}};
}

QJsonObject toJson(const SimulationAbortState &state)
{
    return {{QStringLiteral("jobID"), text(state.jobId)},
            {QStringLiteral("simID"), text(state.simulationId)},
            {QStringLiteral("status"), text(state.status)}};
}

QJsonObject toJson(const CloudFile &file)
{
    return {{QStringLiteral("jobId"), text(file.jobId)},         {QStringLiteral("fileName"), text(file.fileName)},
            {QStringLiteral("fileSize"), qint64(file.fileSize)}, {QStringLiteral("fileDate"), qint64(file.fileDate)},
            {QStringLiteral("fileHash"), text(file.fileHash)},   {QStringLiteral("directory"), file.directory}};
}

QJsonObject toJson(const AccountDetails &account)
{
    return {{QStringLiteral("accountId"), text(account.accountId)},
            {QStringLiteral("accountName"), text(account.accountName)},
            {QStringLiteral("overageEnabled"), account.overageEnabled},
            {QStringLiteral("billingEnabled"), account.billingEnabled},
            {QStringLiteral("planCode"), text(account.planCode)},
            {QStringLiteral("accountCreated"), qint64(account.accountCreated)},
            {QStringLiteral("accountAccess"), toJson(account.accountAccess)}};
}

QJsonObject toJson(const AccountBalance &balance)
{
    return {{QStringLiteral("accountId"), text(balance.accountId)},
            {QStringLiteral("coreHoursAvailable"), balance.coreHoursAvailable},
            {QStringLiteral("recentTransactions"), arrayOf(balance.recentTransactions)}};
}

QJsonObject toJson(const HpcDetails &cluster)
{
    return {{QStringLiteral("hpcId"), text(cluster.hpcId)},
            {QStringLiteral("hpcActive"), cluster.hpcActive},
            {QStringLiteral("hpcCloud"), text(cluster.hpcCloud)},
            {QStringLiteral("hpcClusterName"), text(cluster.hpcClusterName)},
            {QStringLiteral("hpcDescription"), text(cluster.hpcDescription)},
            {QStringLiteral("hpcRegion"), text(cluster.hpcRegion)},
            {QStringLiteral("hpcAccountBucket"), text(cluster.hpcAccountBucket)}};
}

QJsonObject toJson(const UserDetails &user)
{
    return {{QStringLiteral("userId"), text(user.userId)},
            {QStringLiteral("userEmail"), text(user.userEmail)},
            {QStringLiteral("surname"), text(user.surname)},
            {QStringLiteral("forename"), text(user.forename)},
            {QStringLiteral("companyName"), text(user.companyName)}};
}

QJsonObject toJson(const ItemTag &tag)
{
    return {{QStringLiteral("tagText"), text(tag.tagText)}, {QStringLiteral("tagType"), text(tag.tagType)}};
}

} // namespace Velmora::Cli
