/// @file Session.h
/// The client's session with the service.
#ifndef VELMORA_CLI_SESSION_H
#define VELMORA_CLI_SESSION_H

#include "common/Options.h"

#include <velmora/ClientOptions.h>
#include <velmora/CloudAPI.h>

#include <QList>
#include <QSslCertificate>

#include <functional>
#include <memory>
#include <string>

namespace Velmora::Cli {

/// A `CloudAPI` set up from the options, and a way to wait for its operations.
class Session {
public:
    /// Applies portal and host to the whole process. Throws `Failure` when they, or the certificate authority, are
    /// invalid.
    explicit Session(const Options &options);

    CloudAPI &api() { return m_api; }
    const std::string &host() const { return m_host; }
    const std::string &user() const { return m_user; }
    /// How often the library tries transfers again that begin from now on.
    void setTransferRetries(int count);
    bool usedMfa() const { return !m_mfaCode.empty(); }
    /// What `resume` will take in another process; empty when the service gave none.
    const std::string &refreshToken() const { return m_refreshToken; }

    /// Signs in as the user who is signed in on this machine, or with credentials. Throws `Failure`.
    void signIn();
    /// Signs in with the refresh token of an earlier `velmora login`. Throws `Failure` without a connection.
    /// @return false when there is no token, or the service does not accept it any more
    bool resume();
    /// Signs in with user and password, and prompts on the terminal for what is missing. Throws `Failure`.
    void signInWithPassword();
    /// Signs in again without a prompt; not possible with a one-time code alone.
    bool canSignInAgain() const { return !m_refreshToken.empty() || (!m_password.empty() && m_mfaCode.empty()); }
    void signInAgain(const CloudAPI::Done &onComplete);

    /// Starts an operation and runs the event loop until it completes.
    /// @return the outcome, code 0 when no answer came in time. Throws `Failure` on Ctrl-C.
    template <class Result> struct Answer {
        ApiError error;
        Result result{};
    };
    template <class Result> Answer<Result> ask(const std::function<void(const CloudAPI::ResultDone<Result> &)> &start)
    {
        auto waiting = std::make_shared<Waiting>();
        auto answer = std::make_shared<Answer<Result>>();
        start([waiting, answer](const ApiError &error, const Result &result) {
            answer->error = error;
            answer->result = result;
            waiting->complete();
        });
        wait(*waiting);
        return *answer;
    }
    /// As `ask`, but a failed operation throws `Failure`.
    template <class Result> Result get(const std::function<void(const CloudAPI::ResultDone<Result> &)> &start)
    {
        Answer<Result> answer = ask<Result>(start);
        check(answer.error);
        return std::move(answer.result);
    }

    /// The job's records. Throws `Failure`.
    JobDetails job(const std::string &jobId);

    /// Throws `Failure` unless the operation succeeded.
    void check(const ApiError &error) const;
    Failure failureOf(const ApiError &error) const;
    Failure noConnection() const;
    /// Tries to connect, for a few seconds at most. Empty when that succeeds.
    QString whyUnreachable() const;

private:
    struct Waiting {
        bool done = false;
        std::function<void()> wake;
        void complete();
    };
    void wait(Waiting &waiting);
    std::string readMfaCode() const;
    /// Keeps the newest refresh token of the answer to a sign-in.
    void takeToken(const std::string &answer);

    Options m_options;
    std::string m_host;
    std::string m_user;
    std::string m_password;
    std::string m_mfaCode;
    std::string m_refreshToken;
    QList<QSslCertificate> m_authorities; ///< of `--ca`
    ClientOptions m_client = ClientOptions::robust();
    CloudAPI m_api;
};

/// An error of the service as text for the user.
QString errorText(const ApiError &error);

} // namespace Velmora::Cli

#endif
