#pragma once

// An application of the flat functions: callbacks of every shape, and what they received.

#include "api/flat/Views.h"
#include "portal/Portal.h"
#include "support/Loopback.h"

using namespace Velmora;

// Of the global namespace, like the views. By name, back into records, so that a view's field must be where the
// record's field of that name is.
inline std::string recordOf(const char *text) { return text; }
template <class T> std::enable_if_t<std::is_arithmetic_v<T>, T> recordOf(T value) { return value; }
template <class T> auto recordOf(const std::list<T> &views)
{
    std::list<decltype(recordOf(views.front()))> records;
    for (const T &view : views)
        records.push_back(recordOf(view));
    return records;
}

#define SAME(name) record.name = recordOf(view.name)
#define VIEW(Record, ...)                                                                                              \
    inline Record recordOf(const Velmora##Record##View &view)                                                          \
    {                                                                                                                  \
        Record record;                                                                                                 \
        __VA_ARGS__;                                                                                                   \
        return record;                                                                                                 \
    }
VIEW(ApiError, SAME(errorCode), SAME(errorTitle), SAME(errorMessage))
VIEW(CloudFile, SAME(jobId), SAME(fileName), SAME(fileSize), SAME(fileDate), SAME(fileHash), SAME(directory))
VIEW(FileDownloadDetails, SAME(localFileLocation), SAME(cloudFileDetails))
VIEW(FileUploadDetails, SAME(localFileLocation), SAME(cloudFileJobID), SAME(totalFileSize))
VIEW(DeleteFileDetails, SAME(jobId), SAME(simulationId), SAME(fileName))
VIEW(ItemTag, SAME(tagText), SAME(tagType))
VIEW(UserDetails, SAME(userId), SAME(userEmail), SAME(surname), SAME(forename), SAME(companyName))
VIEW(AccountAccess, SAME(accountID), SAME(userEmail), SAME(maxCoreHourRequest), SAME(accountAdmin), SAME(hasMFA))
VIEW(AccountDetails, SAME(accountId), SAME(accountName), SAME(overageEnabled), SAME(billingEnabled), SAME(planCode),
     SAME(accountCreated), SAME(accountAccess))
VIEW(AccountTransaction, SAME(accountId), SAME(transactionId), SAME(jobId), SAME(simulationId), SAME(transactionType),
     SAME(transactionDescription), SAME(userEmail), SAME(userId), SAME(transactionAmount), SAME(transactionDate),
     SAME(invoiceSubmitted), SAME(invoiceRequired), SAME(invoiceAccepted))
VIEW(AccountBalance, SAME(accountId), SAME(coreHoursAvailable), SAME(recentTransactions))
VIEW(HpcDetails, SAME(hpcId), SAME(hpcActive), SAME(hpcCloud), SAME(hpcClusterName), SAME(hpcDescription),
     SAME(hpcRegion), SAME(hpcAccountBucket))
VIEW(JobStatusEntry, SAME(jobId), SAME(jobStatus), SAME(jobStatusDate))
VIEW(SimulationStatusEntry, SAME(jobId), SAME(simulationId), SAME(simulationStatus), SAME(simulationStatusDate))
VIEW(SimulationDetails, SAME(simulationId), SAME(consoleParameters), SAME(simulationStatus))
VIEW(JobDetails, SAME(jobId), SAME(accountId), SAME(jobName), SAME(dockerTag), SAME(coresRequired),
     SAME(coreHourEstimate), SAME(ramEstimate), SAME(mainFile), SAME(precision), SAME(numberOfParts),
     SAME(fileDependencies), SAME(fileAliases), SAME(operation), SAME(simulations), SAME(jobStatus), SAME(jobType))
VIEW(SimulationProgress, SAME(simulationId), SAME(progress))
VIEW(JobProgress, SAME(jobId), SAME(simulationProgressList))
VIEW(SimulationAbortState, SAME(jobId), SAME(simulationId), SAME(status))
#undef VIEW
#undef SAME

/// One callback of an application; converts to a function pointer of any type. Several at once: `Callback<1>` …
template <int which = 0> struct Callback {
    /// One entry per call, one text per argument. Views become the text that the `_Json` form passes, so that both
    /// forms of a function must give the same.
    static inline std::vector<std::vector<std::string>> received;
    static inline std::function<void()> then; ///< runs once, inside the callback, before it looks at its arguments

    Callback() { received.clear(); }
    template <class... Arguments> using Function = void (*)(Arguments...);
    template <class... Arguments> operator Function<Arguments...>() const { return &called<Arguments...>; }

    static const std::vector<std::string> &last() { return received.back(); }
    /// Of the last call's outcome.
    static int code() { return QJsonDocument::fromJson(last().at(0).c_str())["errorCode"].toInt(); }

private:
    template <class... Arguments> static void called(Arguments... arguments)
    {
        if (const auto once = std::exchange(then, nullptr))
            once();
        received.push_back({textOf(arguments)...});
    }
    static std::string textOf(const char *text) { return text; }
    static std::string textOf(bool flag) { return flag ? "true" : "false"; }
    static std::string textOf(std::int32_t number) { return std::to_string(number); }
    template <class View> static std::string textOf(const View *view) { return outputText(recordOf(*view)); }
};
