/// @file Callbacks.h
/// The types of the functions that an application passes to `CloudAPI`. The class has them under the same names:
/// `CloudAPI::Done` is `Done`.
///
/// Every callback runs on the thread that owns the `CloudAPI`. Its arguments are valid until it returns. An empty
/// callback is allowed and never called. A callback must not throw: the exception would pass through Qt's event loop,
/// which does not survive it. Catch inside.
#ifndef VELMORA_CALLBACKS_H
#define VELMORA_CALLBACKS_H

#include <velmora/Records.h>

#include <cstdint>
#include <functional>
#include <string>

namespace Velmora {

/// The end of an operation without a result. Argument: outcome.
using Done = std::function<void(const ApiError &)>;
/// The end of an operation with a result. Arguments: outcome; the result.
template <class Result> using ResultDone = std::function<void(const ApiError &, const Result &)>;
/// Arguments: outcome, job id, message text.
using JobMessage = std::function<void(const ApiError &, const std::string &, const std::string &)>;
/// Argument: what is known of all simulations of a followed job.
using JobUpdate = std::function<void(const JobProgress &)>;
/// The end of a followed job. Arguments: outcome; the job.
using JobEnd = ResultDone<JobDetails>;
/// What happened to the session's token. Numbers, for the flat functions; they stay as they are.
enum class SessionChange {
    SignedIn = 0, ///< by `logUserIn` or `resumeSession`
    Renewed = 1,  ///< a new token has replaced one that was about to expire
    /// There is no token any more, because the service refused to renew it, or did not answer. Nothing more is tried:
    /// sign in again. With `ClientOptions::keepAlive` only a refusal leads to this.
    RenewalFailed = 2,
    SignedOut = 3, ///< by `clearActiveAccount`, or because the next sign-in began
};
using SessionChanged = std::function<void(SessionChange)>;
/// Second argument: bytes sent so far. They are those of the encrypted file and of the form fields around it, so the
/// last value is a little above the size of the file. The value never goes back.
using UploadProgress = std::function<void(const FileUploadDetails &, std::int64_t)>;
/// Second argument: encrypted bytes received so far over all pieces, so the last value is a little above the size of
/// the file. The value never goes back.
using DownloadProgress = std::function<void(const FileDownloadDetails &, std::int64_t)>;

} // namespace Velmora

#endif
