#pragma once

#include "model/Fields.h"

#include <velmora/ClientOptions.h>
#include <velmora/JobSubmit.h>
#include <velmora/Records.h>

namespace Velmora {

/// Removes the switches that the service puts in front of a simulation's own parameters.
QString withoutFixedSwitches(const QString &consoleParameters);

template <> struct Schema<ApiError> {
    static constexpr auto fields()
    {
        return std::make_tuple(field(&ApiError::errorCode, "errorCode"), field(&ApiError::errorTitle, "errorTitle"),
                               field(&ApiError::errorMessage, "errorMessage"));
    }
};

template <> struct Schema<ClientOptions> {
    /// True starts from `ClientOptions::robust`.
    static constexpr const char *robustKey = "robust";
    static constexpr auto fields()
    {
        return std::make_tuple(
            field(&ClientOptions::keepAlive, "keepAlive"), field(&ClientOptions::answerTimeout, "answerTimeout"),
            field(&ClientOptions::stallTimeout, "stallTimeout"),
            field(&ClientOptions::transferRetries, "transferRetries"),
            field(&ClientOptions::uploadBytesPerSecond, "uploadBytesPerSecond"),
            field(&ClientOptions::downloadBytesPerSecond, "downloadBytesPerSecond"),
            field(&ClientOptions::connectionsPerHost, "connectionsPerHost"), field(&ClientOptions::caFile, "caFile"));
    }
};

template <> struct Schema<ProxyDefinition> {
    static constexpr auto fields()
    {
        return std::make_tuple(
            field(&ProxyDefinition::proxyHost, "proxyHost"), field(&ProxyDefinition::proxyUser, "proxyUser"),
            field(&ProxyDefinition::proxyPassword, "proxyPassword"), field(&ProxyDefinition::proxyPort, "proxyPort"),
            field(&ProxyDefinition::proxyType, "proxyType"));
    }
};

template <> struct Schema<CloudFile> {
    static constexpr const char *listKey = "fileList";
    static constexpr auto fields()
    {
        return std::make_tuple(
            field(&CloudFile::jobId, "jobId").asInput(), field(&CloudFile::fileName, "fileName").asInput(),
            field(&CloudFile::fileSize, "fileSize").asInput(Width::Int32), field(&CloudFile::fileDate, "fileDate"),
            field(&CloudFile::fileHash, "fileHash"), field(&CloudFile::directory, "directory").asInput());
    }
};

template <> struct Schema<FileDownloadDetails> {
    static constexpr auto fields()
    {
        return std::make_tuple(field(&FileDownloadDetails::localFileLocation, "localFileLocation").asInput(),
                               field(&FileDownloadDetails::cloudFileDetails, "cloudFileDetails").asInput());
    }
};

template <> struct Schema<FileUploadDetails> {
    static constexpr auto fields()
    {
        return std::make_tuple(field(&FileUploadDetails::localFileLocation, "localFileLocation").asInput(),
                               field(&FileUploadDetails::cloudFileJobID, "cloudFileJobID").asInput(),
                               field(&FileUploadDetails::totalFileSize, "totalFileSize").asInput(Width::Int32));
    }
};

template <> struct Schema<DeleteFileDetails> {
    static constexpr auto fields()
    {
        return std::make_tuple(field(&DeleteFileDetails::jobId, "jobId").asInput(),
                               field(&DeleteFileDetails::simulationId, "simulationId").asInput(),
                               field(&DeleteFileDetails::fileName, "fileName").asInput());
    }
};

template <> struct Schema<ItemTag> {
    static constexpr const char *listKey = "itemTagList";
    static constexpr auto fields()
    {
        return std::make_tuple(field(&ItemTag::tagText, "tag", "tagText").asInput(),
                               field(&ItemTag::tagType, "type", "tagType").asInput());
    }
};

template <> struct Schema<UserDetails> {
    static constexpr auto fields()
    {
        return std::make_tuple(
            field(&UserDetails::userId, "userId"), field(&UserDetails::userEmail, "cognitoEmail", "userEmail"),
            field(&UserDetails::surname, "lastName", "surname"), field(&UserDetails::forename, "firstName", "forename"),
            field(&UserDetails::companyName, "companyName"));
    }
};

template <> struct Schema<AccountAccess> {
    static constexpr auto fields()
    {
        return std::make_tuple(field(&AccountAccess::accountID, "accountId", "accountID"),
                               field(&AccountAccess::userEmail, "cognitoEmail", "userEmail"),
                               field(&AccountAccess::maxCoreHourRequest, "maxCoreHourRequest"),
                               field(&AccountAccess::accountAdmin, "accountAdmin"),
                               field(&AccountAccess::hasMFA, "hasMFA"));
    }
};

template <> struct Schema<AccountDetails> {
    static constexpr const char *listKey = "accountDetailsList";
    /// The reply keeps the account and the user's access to it side by side.
    static constexpr auto fields()
    {
        constexpr const char *account = "account";
        return std::make_tuple(field(&AccountDetails::accountId, "accountId").within(account),
                               field(&AccountDetails::accountName, "accountName").within(account),
                               field(&AccountDetails::overageEnabled, "overageEnabled").within(account),
                               field(&AccountDetails::billingEnabled, "billingEnabled").within(account),
                               field(&AccountDetails::planCode, "planCode").within(account),
                               field(&AccountDetails::accountCreated, "accountCreated").within(account).narrowReply(),
                               field(&AccountDetails::accountAccess, "accountAccess"));
    }
};

template <> struct Schema<AccountTransaction> {
    static constexpr auto fields()
    {
        return std::make_tuple(field(&AccountTransaction::accountId, "accountId"),
                               field(&AccountTransaction::transactionId, "transactionId"),
                               field(&AccountTransaction::jobId, "jobId"),
                               field(&AccountTransaction::simulationId, "simulationId"),
                               field(&AccountTransaction::transactionType, "transactionType"),
                               field(&AccountTransaction::transactionDescription, "transactionDescription"),
                               field(&AccountTransaction::userEmail, "cognitoEmail", "userEmail"),
                               field(&AccountTransaction::userId, "userId"),
                               field(&AccountTransaction::transactionAmount, "transactionAmount"),
                               field(&AccountTransaction::transactionDate, "transactionDate"),
                               field(&AccountTransaction::invoiceSubmitted, "invoiceSubmitted"),
                               field(&AccountTransaction::invoiceRequired, "invoiceRequired"),
                               field(&AccountTransaction::invoiceAccepted, "invoiceAccepted"));
    }
};

template <> struct Schema<AccountBalance> {
    static constexpr auto fields()
    {
        return std::make_tuple(field(&AccountBalance::accountId, "accountId"),
                               field(&AccountBalance::coreHoursAvailable, "coreHoursAvailable"),
                               field(&AccountBalance::recentTransactions, "recentTransactions"));
    }
};

template <> struct Schema<HpcDetails> {
    static constexpr const char *listKey = "hpcDetailsList";
    static constexpr auto fields()
    {
        return std::make_tuple(
            field(&HpcDetails::hpcId, "hpcId"), field(&HpcDetails::hpcActive, "hpcActive"),
            field(&HpcDetails::hpcCloud, "hpcCloud"), field(&HpcDetails::hpcClusterName, "hpcClusterName"),
            field(&HpcDetails::hpcDescription, "hpcDescription"), field(&HpcDetails::hpcRegion, "hpcRegion"),
            field(&HpcDetails::hpcAccountBucket, "hpcAccountBucket"));
    }
};

template <> struct Schema<JobStatusEntry> {
    static constexpr auto fields()
    {
        return std::make_tuple(field(&JobStatusEntry::jobId, "jobId"), field(&JobStatusEntry::jobStatus, "jobStatus"),
                               field(&JobStatusEntry::jobStatusDate, "jobStatusDate"));
    }
};

template <> struct Schema<SimulationStatusEntry> {
    static constexpr auto fields()
    {
        return std::make_tuple(field(&SimulationStatusEntry::jobId, "jobId"),
                               field(&SimulationStatusEntry::simulationId, "simulationId"),
                               field(&SimulationStatusEntry::simulationStatus, "simulationStatus"),
                               field(&SimulationStatusEntry::simulationStatusDate, "simulationStatusDate"));
    }
};

template <> struct Schema<SimulationDetails> {
    static constexpr auto fields()
    {
        return std::make_tuple(
            field(&SimulationDetails::simulationId, "simulationId"),
            field(&SimulationDetails::consoleParameters, "consoleParameters").cleaned(&withoutFixedSwitches),
            field(&SimulationDetails::simulationStatus, "simulationStatus"));
    }
};

template <> struct Schema<JobDetails> {
    static constexpr const char *listKey = "jobDetailsList";
    static constexpr auto fields()
    {
        return std::make_tuple(
            field(&JobDetails::jobId, "jobId"), field(&JobDetails::accountId, "accountId"),
            field(&JobDetails::jobName, "jobName"), field(&JobDetails::dockerTag, "dockerTag"),
            field(&JobDetails::coresRequired, "coresRequired"),
            field(&JobDetails::coreHourEstimate, "coreHourEstimate"), field(&JobDetails::ramEstimate, "ramEstimate"),
            field(&JobDetails::mainFile, "mainFile"), field(&JobDetails::precision, "precision"),
            field(&JobDetails::numberOfParts, "numberOfParts"),
            field(&JobDetails::fileDependencies, "fileDependencies"), field(&JobDetails::fileAliases, "fileAliases"),
            field(&JobDetails::operation, "operation"), field(&JobDetails::simulations, "simulations"),
            field(&JobDetails::jobStatus, "jobStatus"), field(&JobDetails::jobType, "jobType"));
    }
};

template <> struct Schema<SimulationProgress> {
    static constexpr auto fields()
    {
        return std::make_tuple(field(&SimulationProgress::simulationId, "simulationId"),
                               field(&SimulationProgress::progress, "progress"));
    }
};

template <> struct Schema<JobProgress> {
    static constexpr auto fields()
    {
        return std::make_tuple(field(&JobProgress::jobId, "jobId"),
                               field(&JobProgress::simulationProgressList, "simulationProgressList"));
    }
};

template <> struct Schema<SimulationAbortState> {
    static constexpr const char *listKey = "simulationAbortList";
    static constexpr auto fields()
    {
        return std::make_tuple(field(&SimulationAbortState::jobId, "jobId", "jobID"),
                               field(&SimulationAbortState::simulationId, "simulationId", "simID"),
                               field(&SimulationAbortState::status, "status"));
    }
};

/// Here the "reply" key is the one of the submission body, where some values take another form: see JobSubmit.cpp.
template <> struct Schema<JobSubmit> {
    /// An MPI job states its cores under this key instead, and the body states them under both.
    static constexpr const char *partsKey = "numberOfParts";
    static constexpr auto fields()
    {
        return std::make_tuple(
            field(&JobSubmit::jobID, "jobId", "jobID").asInput(),
            field(&JobSubmit::accountID, "accountId", "accountID").asInput(),
            field(&JobSubmit::jobName, "jobName").asInput(),
            field(&JobSubmit::coresRequired, "coresRequired").asInput(),
            field(&JobSubmit::coreHourEstimate, "coreHourEstimate").asInput(),
            field(&JobSubmit::ramEstimate, "ramEstimate").asInput(), field(&JobSubmit::mainFile, "mainFile").asInput(),
            field(&JobSubmit::jobPrecision, "precision", "jobPrecision").asInput(),
            field(&JobSubmit::solverTag, "dockerTag", "solverTag").asInput(),
            field(&JobSubmit::dependentFilesList, "fileDependencies", "dependentFilesList").asInput(),
            field(&JobSubmit::dependentFilesAliasList, "fileAliases", "dependentFilesAliasList").asInput(),
            field(&JobSubmit::operation, "operation").asInput(),
            field(&JobSubmit::simulations, "simulations").asInput(),
            field(&JobSubmit::originApplication, "application", "originApplication").asInput());
    }
};

} // namespace Velmora
