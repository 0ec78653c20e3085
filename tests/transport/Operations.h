#pragma once

// Every operation that sends a request, as a table: how it is called, what the service must see, one good answer,
// and its result. A row of a path under /api/ and JSON as text:
//     {"killJob", "POST", "job/stop", BODY, ERROR TITLE, ANSWER, call(&CloudAPI::killJob, "J1"), RESULT}
// RESULT is left out when the result is the answer. A name with more words ("killJob of nothing") is another case.

#include "support/AnyCompletion.h"
#include "support/Loopback.h"
#include "support/Parts.h"

using namespace Velmora;

/// What a completion callback received.
struct Completion {
    int calls = 0;
    ApiError error;
    QJsonValue result;
    bool isDefault = true; ///< the result is a default-constructed one, or there is none
};

struct Into : AnyCompletion {
    Into() = default; ///< an empty callback
    explicit Into(Completion *to)
        : AnyCompletion{[to](const auto &error, const auto &result, bool isDefault) {
            *to = {to->calls + 1, error, result, isDefault};
        }}
    {
        *to = {};
    }
};

struct Operation {
    const char *name, *verb;
    QByteArray path; ///< behind /api/
    QByteArray body;
    const char *title;
    QByteArray reply; ///< a good answer
    std::function<void(CloudAPI &, Into)> call;
    QByteArray result = reply; ///< as JSON; the result may have more members

    QByteArray target() const { return "/api/" + path; }
    friend std::ostream &operator<<(std::ostream &out, const Operation &operation) { return out << operation.name; }
};

const std::vector<Operation> &operations();
const Operation &operation(const char *name);

/// An indented JSON object of text members, written without the code under test.
QByteArray indented(std::initializer_list<std::pair<const char *, const char *>> members);
QJsonValue parsed(const QByteArray &value);
/// True when `whole` is `part`, or an object with more members.
bool holds(const QJsonValue &whole, const QJsonValue &part);

inline constexpr char idToken[] = "id-token-4711", refreshToken[] = "refresh-token-0815";
/// The service's answer to a login or a renewal.
QByteArray tokens(int expiresIn, const QByteArray &id = idToken);

/// A session against a scripted server. A warning of Qt fails the test, except one that the tests cause on purpose: by
/// a body that cannot be sent again.
struct TransportTest : testing::Test {
    void TearDown() override;
    /// Calls the operation, whose answer may be scripted; `run` waits for its completion.
    void start(const char *name, const std::optional<Answer> &scripted = {});
    void run(const char *name, const std::optional<Answer> &scripted = {});
    void logIn(int expiresIn = 3600);
    int sent(const QByteArray &verb, const QByteArray &target) const;
    void expect(int code, const std::string &title = {}, const std::string &message = {}) const
    {
        EXPECT_EQ(done.error.errorCode, code);
        EXPECT_EQ(done.error.errorTitle, title);
        EXPECT_EQ(done.error.errorMessage, message);
    }
    bool wait(const Completion &completion) { return EVENTUALLY(completion.calls > 0); }
    bool seen(int requests) { return EVENTUALLY(server.requests().size() == requests); }
    bool pausing() { return EVENTUALLY(server.pausing() == 1); }

    LogCatcher log;
    Loopback loopback;
    ScriptedServer &server = loopback.server;
    Completion done; // outlives the session
    std::unique_ptr<CloudAPI> api = std::make_unique<CloudAPI>();
};
