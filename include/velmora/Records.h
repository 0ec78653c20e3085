/// @file Records.h
/// The plain records that cross the library's boundary.
///
/// Records are value types: public fields, implicit copies, no behaviour. Text is UTF-8. Numbers and
/// flags start as zero and false. Time stamps are passed through as the service sends them; the library
/// does not interpret them.
///
/// The functions after the records read them. They are inline, keep no state and may be called on any
/// thread.
#ifndef VELMORA_RECORDS_H
#define VELMORA_RECORDS_H

#include <cstddef>
#include <cstdint>
#include <list>
#include <string>

namespace Velmora {

/// The portals of the service. With any other value every request fails, unless the environment variable
/// VELMORA_API_URL names a host.
enum class PortalTarget : std::int32_t {
    Test = 0,
    Development = 1,
    Production = 2,
};

/// The outcome of an operation: the first argument of every completion callback, on success too. Use
/// `succeeded` to read it.
struct ApiError {
    /// The HTTP status as received; below 300 is success. 0 means that no whole answer came (connection
    /// refused or broken, certificate not trusted): a failure. The library's own refusals and broken
    /// transfers have the code 400.
    int errorCode = 0;
    /// On failure, the operation that failed; empty with code 0. On success empty, except that a download
    /// has "Download Success", job messages have "Socket Message Success" or "Simulation Finished", and a
    /// followed job has "Job Finished".
    std::string errorTitle;
    /// On failure, the explanation of the service or the library; may be empty, may contain the markup that
    /// `plainText` removes. On success empty, except that `CloudAPI::logUserIn` puts the whole answer here,
    /// tokens included.
    std::string errorMessage;
};

/// One file or directory stored in the cloud under a job.
struct CloudFile {
    std::string jobId;
    std::string fileName;   ///< name, with its path below the job
    long long fileSize = 0; ///< bytes as stored, that is, encrypted
    long long fileDate = 0;
    std::string fileHash; ///< content hash as the service reports it
    bool directory = false;
};

/// One download: what `CloudAPI::downloadFile` takes, what its callbacks receive, and what
/// `CloudAPI::cancelDownload` finds it by.
struct FileDownloadDetails {
    std::string localFileLocation; ///< full path of the file to write
    CloudFile cloudFileDetails;    ///< the file to fetch, as it was listed; jobId and fileName suffice
};

/// One upload: what `CloudAPI::uploadFile` takes, what its callbacks receive, and what
/// `CloudAPI::cancelUpload` finds it by.
struct FileUploadDetails {
    std::string localFileLocation; ///< full path of the file to send
    std::string cloudFileJobID;    ///< job to upload into
    long long totalFileSize = 0;   ///< bytes; ignored in a request, callbacks receive the size found on disk
};

/// The cloud file to delete.
struct DeleteFileDetails {
    std::string jobId;
    std::string simulationId; ///< empty if the file is directly under the job
    std::string fileName;
};

/// A tag attached to a job.
struct ItemTag {
    std::string tagText;
    std::string tagType; ///< category as the service names it
};

/// The signed-in user.
struct UserDetails {
    std::string userId;
    std::string userEmail; ///< the sign-in identity
    std::string surname;
    std::string forename;
    std::string companyName;
};

/// The signed-in user's standing within one account.
struct AccountAccess {
    std::string accountID;
    std::string userEmail;
    int maxCoreHourRequest = 0; ///< core hours the user may request
    bool accountAdmin = false;
    bool hasMFA = false;
};

/// One account that the user may work under.
struct AccountDetails {
    std::string accountId;
    std::string accountName;
    bool overageEnabled = false;
    bool billingEnabled = false;
    std::string planCode;
    long long accountCreated = 0;
    AccountAccess accountAccess;
};

/// One entry of an account's recent transactions.
struct AccountTransaction {
    std::string accountId;
    std::string transactionId;
    std::string jobId;        ///< job charged; may be empty
    std::string simulationId; ///< simulation charged; may be empty
    std::string transactionType;
    std::string transactionDescription;
    std::string userEmail;
    std::string userId;
    double transactionAmount = 0.0;
    long long transactionDate = 0;
    bool invoiceSubmitted = false;
    bool invoiceRequired = false;
    bool invoiceAccepted = false;
};

/// An account's balance.
struct AccountBalance {
    std::string accountId;
    double coreHoursAvailable = 0.0; ///< core hours
    std::list<AccountTransaction> recentTransactions;
};

/// One compute cluster.
struct HpcDetails {
    std::string hpcId;
    bool hpcActive = false; ///< accepts jobs
    std::string hpcCloud;   ///< cloud provider as the service names it
    std::string hpcClusterName;
    std::string hpcDescription;
    std::string hpcRegion;
    std::string hpcAccountBucket; ///< storage bucket of the account on that cluster
};

/// One step of a job's status history.
struct JobStatusEntry {
    std::string jobId;
    std::string jobStatus;
    long long jobStatusDate = 0;
};

/// One step of a simulation's status history.
struct SimulationStatusEntry {
    std::string jobId;
    std::string simulationId;
    std::string simulationStatus;
    long long simulationStatusDate = 0;
};

/// One simulation of a job.
struct SimulationDetails {
    std::string simulationId;
    std::string consoleParameters; ///< solver parameters, without the service's own fixed switches
    std::list<SimulationStatusEntry> simulationStatus;
};

/// A submitted job.
struct JobDetails {
    std::string jobId;
    std::string accountId;
    std::string jobName; ///< jobs submitted by this library carry a time stamp at the end
    std::string dockerTag;
    int coresRequired = 0;         ///< per simulation
    double coreHourEstimate = 0.0; ///< core hours per simulation
    int ramEstimate = 0;           ///< MB
    std::string mainFile;
    std::string precision; ///< "single" or "double"
    int numberOfParts = 0; ///< processes per simulation
    std::list<std::string> fileDependencies;
    std::list<std::string> fileAliases; ///< one per dependency, in the same order
    std::string operation;              ///< "mpi", "simulation", "review" or "build"
    std::list<SimulationDetails> simulations;
    std::list<JobStatusEntry> jobStatus;
    std::string jobType;
};

/// Progress of one simulation.
struct SimulationProgress {
    std::string simulationId;
    int progress = 0; ///< as the service reports it; percent with today's service
};

/// Progress of all simulations of a job.
struct JobProgress {
    std::string jobId;
    std::list<SimulationProgress> simulationProgressList;
};

/// The outcome of stopping one simulation.
struct SimulationAbortState {
    std::string jobId;
    std::string simulationId;
    std::string status; ///< the service's answer for that simulation
};

/// Argument of `CloudAPI::applyProxy`.
struct ProxyDefinition {
    std::string proxyHost;
    std::string proxyUser;     ///< may be empty
    std::string proxyPassword; ///< may be empty
    int proxyPort = 0;         ///< its low 16 bits are used
    int proxyType = 0;         ///< 0 SOCKS 5, 1 HTTP, 2 the system's configuration
};

/// Whether an operation succeeded: the service answered with a status below 300. Code 0, no answer,
/// is not success.
inline bool succeeded(const ApiError &error) { return error.errorCode > 0 && error.errorCode < 300; }

/// A message without the tags "<b>" and "</b>", which `JobSubmit::errorMessage` and the refusals made
/// of it carry. Everything else stays, line breaks and other markup included.
inline std::string plainText(const std::string &message)
{
    static const std::string tags[] = {"<b>", "</b>"};
    std::string text = message;
    for (const std::string &tag : tags)
        for (std::size_t at = text.find(tag); at != std::string::npos; at = text.find(tag, at))
            text.erase(at, tag.size());
    return text;
}

/// The newest status of a job, as the service spells it (today's in capitals); empty when there is none.
/// The order in which the entries are listed does not matter, except that the later of two with the
/// same date wins.
inline std::string latestStatus(const JobDetails &job)
{
    const JobStatusEntry *latest = nullptr;
    for (const JobStatusEntry &entry : job.jobStatus)
        if (latest == nullptr || entry.jobStatusDate >= latest->jobStatusDate)
            latest = &entry;
    return latest == nullptr ? std::string() : latest->jobStatus;
}

/// The newest status of a simulation, by the same rules.
inline std::string latestStatus(const SimulationDetails &simulation)
{
    const SimulationStatusEntry *latest = nullptr;
    for (const SimulationStatusEntry &entry : simulation.simulationStatus)
        if (latest == nullptr || entry.simulationStatusDate >= latest->simulationStatusDate)
            latest = &entry;
    return latest == nullptr ? std::string() : latest->simulationStatus;
}

/// Whether a download has received everything. What remains until its completion is work on this
/// machine: writing, and putting the file into its place.
/// @param file   as the progress callback receives it; its listed size must have been passed to the
///               download. Without one the answer is false.
/// @param bytes  as the progress callback receives them
inline bool hasReceivedAll(const FileDownloadDetails &file, std::int64_t bytes)
{
    return file.cloudFileDetails.fileSize > 0 && bytes >= file.cloudFileDetails.fileSize;
}

/// Whether Windows forbids `name` for a file: a character that no name may hold there, a dot or blank
/// at the end, or the name of a device (CON, COM1.txt). Answers alike on every platform.
/// @param name  without folders
inline bool isForbiddenOnWindows(const std::string &name)
{
    if (name.find_first_of("<>:\"/\\|?*") != std::string::npos)
        return true;
    for (const char character : name)
        if (static_cast<unsigned char>(character) < 0x20)
            return true;
    if (!name.empty() && (name.back() == '.' || name.back() == ' '))
        return true;
    // A device is meant with any extension, and with blanks in front of it.
    std::string device = name.substr(0, name.find('.'));
    device.erase(device.find_last_not_of(' ') + 1);
    for (char &letter : device)
        letter = static_cast<char>(letter >= 'a' && letter <= 'z' ? letter - 'a' + 'A' : letter);
    for (const char *each : {"CON", "PRN", "AUX", "NUL", "CONIN$", "CONOUT$"})
        if (device == each)
            return true;
    if (device.compare(0, 3, "COM") != 0 && device.compare(0, 3, "LPT") != 0)
        return false;
    for (const char *digit : {"0", "1", "2", "3", "4", "5", "6", "7", "8", "9", "\xc2\xb9", "\xc2\xb2", "\xc2\xb3"})
        if (device.compare(3, std::string::npos, digit) == 0)
            return true;
    return false;
}

/// Whether a cloud file's name, appended to a folder, names a file inside that folder. Check it before
/// you make the target of a download from a listed name.
/// @param cloudName  may hold folders, with "/" between them. An empty name or part, ".", "..", and a
///                   name with a backslash, a colon or a NUL byte are refused on every platform; on
///                   Windows also what `isForbiddenOnWindows`.
inline bool isSafePath(const std::string &cloudName)
{
#ifdef _WIN32
    constexpr bool onWindows = true;
#else
    constexpr bool onWindows = false;
#endif
    if (cloudName.find_first_of(std::string("\\:\0", 3)) != std::string::npos)
        return false;
    std::size_t begin = 0;
    for (std::size_t end = 0; end != std::string::npos; begin = end + 1) {
        end = cloudName.find('/', begin);
        const std::string part = cloudName.substr(begin, end == std::string::npos ? end : end - begin);
        if (part.empty() || part == "." || part == ".." || (onWindows && isForbiddenOnWindows(part)))
            return false;
    }
    return true;
}

} // namespace Velmora

#endif
