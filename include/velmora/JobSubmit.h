/// @file JobSubmit.h
/// The definition of a job to run, its validation and the body that is submitted.
#ifndef VELMORA_JOBSUBMIT_H
#define VELMORA_JOBSUBMIT_H

#include <velmora/Export.h>

#include <list>
#include <string>

namespace Velmora {

/// What a job does.
enum class JobOperation : int {
    Mpi = 0,        ///< one solver run over several processes
    Simulation = 1, ///< one process per simulation
    Review = 2,
    Build = 3,
};

/// One failed check of `JobSubmit::validate`.
enum class JobSubmitError : int {
    TooManyCores = 0,
    TooFewCores = 1,
    BadJobName = 2,
    MissingJobID = 3,
    NoSimulations = 4,
    NoMainFile = 5,
    BadCoreHourEstimate = 6,
    RamTooLow = 7,
    RamTooHigh = 8,
    NoApplication = 9,
};

/// A job to run. A value type: fill the fields, then pass it to `CloudAPI::submitNewJob`, which
/// validates it first. Its members may be called on any thread and throw nothing.
class VELMORA_EXPORT JobSubmit {
public:
    JobSubmit() = default;

    /// Reads the JSON form that applications pass as text: an object with the keys jobID, accountID,
    /// jobName, mainFile, solverTag, dependentFilesList, dependentFilesAliasList, operation,
    /// simulations, coresRequired, coreHourEstimate (per simulation), jobPrecision, ramEstimate,
    /// numberOfParts (read for MPI jobs only, where it sets the cores) and originApplication.
    /// A missing key or a value of another type reads as empty or zero; text that is not JSON
    /// gives an empty job, which `validate` refuses.
    explicit JobSubmit(const std::string &json);

    std::string jobID;             ///< from `CloudAPI::generateNewJobID`
    std::string accountID;         ///< account to charge
    std::string jobName;           ///< without diacritics (not checked); a time stamp is appended on submission
    int coresRequired = 0;         ///< per simulation, 1 to 128
    double coreHourEstimate = 0.0; ///< core hours of all simulations together
    int ramEstimate = 0;           ///< MB, below 1800 GB
    std::string mainFile;          ///< name of a trninp, revinp or bldinp file
    int jobPrecision = 0;          ///< 0 single, anything else double
    std::string solverTag = " ";   ///< solver image; with a blank the service chooses
    std::list<std::string> dependentFilesList;      ///< names of the other files that the solver reads
    std::list<std::string> dependentFilesAliasList; ///< one per dependent file, in the same order
    JobOperation operation = JobOperation::Mpi;
    std::list<std::string> simulations; ///< one entry per simulation: its solver parameters
    std::string originApplication;      ///< name of the application that submits

    /// Runs every check.
    /// @param errors  one code per failed check is appended, in a fixed order; may be null
    /// @return true if no check failed
    bool validate(std::list<JobSubmitError> *errors = nullptr) const;

    /// The message for a code, with "<b>" markup that `plainText` removes; "No Errors detected" for an
    /// unknown code.
    static std::string errorMessage(JobSubmitError code);

    /// The JSON text that is submitted, with the current local time in the job's name; an empty text if
    /// `validate` fails.
    std::string toSubmissionJson() const;
};

} // namespace Velmora

#endif
