// From a status and a body to an outcome; error titles; addresses.

#include "transport/Operations.h"

#include <QTcpServer>

using namespace Velmora;

namespace {

struct Shape {
    const char *operation;
    const char *title;
    int column; // of a body's results
};

struct Body {
    const char *text;
    const char *message;    // when the status says failure
    const char *results[5]; // of each shape when it says success: one JSON value in an array; null: empty
};

constexpr Body bodies[] = {
    {R"({"message":"No such job","jobId":"J1"})", "No such job", {R"([{"jobId":"J1"}])", nullptr, R"(["J1"])"}},
    {R"({"error":{"message":"inner"}})", "", {}},
    {R"({"message":42,"jobId":7})", "", {}},
    {R"([{"jobId":"J1","message":"inside an array"}])", "", {nullptr, R"([[{"jobId":"J1"}]])"}},
    {"true", "", {nullptr, nullptr, nullptr, "[true]"}},
    {"<html><body>Bad Gateway</body></html>", "", {}},
    {"", "", {}},
};

constexpr int statuses[] = {200, 201, 204, 299, 300, 302, 400, 401, 404, 407, 500, 503};

class Pipeline : public TransportTest, public testing::WithParamInterface<Shape> {};

TEST_P(Pipeline, StatusAndBodyDecideTheOutcome)
{
    const Shape &shape = GetParam();
    const Operation &subject = operation(shape.operation);
    for (const int status : statuses) {
        for (const Body &body : bodies) {
            SCOPED_TRACE(std::to_string(status) + " " + body.text);
            server.next(answer(status, body.text));
            run(subject);
            const bool failed = status >= 300;
            EXPECT_EQ(done.error.errorCode, status);
            EXPECT_EQ(done.error.errorTitle, failed ? shape.title : "");
            EXPECT_EQ(done.error.errorMessage, failed ? body.message : "");
            const char *result = failed || status == 204 ? nullptr : body.results[shape.column];
            if (result) {
                EXPECT_TRUE(holds(done.result, QJsonDocument::fromJson(result).array().first()));
            } else {
                EXPECT_TRUE(done.isDefault || done.result.isNull());
            }
        }
    }
}

TEST_P(Pipeline, NoStatusAtAllIsCodeZero)
{
    server.next(hangUp());
    run(operation(GetParam().operation));
    EXPECT_EQ(done.error.errorCode, 0);
    EXPECT_EQ(done.error.errorTitle + done.error.errorMessage, "");
    EXPECT_TRUE(done.isDefault || done.result.isNull());
}

INSTANTIATE_TEST_SUITE_P(Shapes, Pipeline,
                         testing::Values(Shape{"getJobDetails", "Error Requesting Job Information", 0},
                                         Shape{"getAllJobDetails", "Error Requesting Job Information", 1},
                                         Shape{"generateNewJobID", "Error Requesting Job ID", 2},
                                         Shape{"checkMFAEnabled", "Error Authenticating Credentials", 3},
                                         Shape{"sendUserEvent", "Error Logging User Event", 4}),
                         [](const auto &row) { return std::string(row.param.operation); });

TEST(Endpoints, TitlesAndPathsOfAllCodes)
{
    const char *const table[34][2] = {
        {"auth/login", "Error Authenticating Credentials"},
        {"auth/refresh", "Error Authenticating Credentials"},
        {"job/init", "Error Requesting Job ID"},
        {"job/key", "Error Requesting Encryption Key"},
        {"job/files", "Error Transferring Files"},
        {"job/files", "Error Transferring Files"},
        {"job/files/list", "Error Retrieving File List for Job"},
        {"job/files", "Error Transferring Files"},
        {"job/list", "Error Requesting Job Information"},
        {"job/simulation/stop", "Error Aboting Simulation"},
        {nullptr, "Unknown Error"},
        {nullptr, "Unknown Error"},
        {"job/submit", "Error Submitting Job"},
        {"account/balance", "Error Requesting Account Balance"},
        {"account/list", "Error Retrieving Account List"},
        {"user/details", "Error Accessing User Details"},
        {"user/modify", "Error Modifying User Details"},
        {"job/load", "Error Requesting Job Information"},
        {"job/progress", "Error Requesting Job Progress"},
        {"job/stop", "Error Aborting Job"},
        {"job/archive", "Error Archiving Job"},
        {"auth/hasMFA", "Error Authenticating Credentials"},
        {"tag/job", "Error Editing Job Tags"},
        {"tag/list", "Error Retrieving Tag List for Job"},
        {"tag/list/account", "Error Retrieving Tag List for Account"},
        {"tag/search/job/user", "Error Searching for Tagged Jobs"},
        {"account/bucketInformation", "Error Getting Account Bucket Information"},
        {"job/files/credentials", "Error Getting Temp AWS Credentials"},
        {"account/hpc/list", "Unknown Error"},
        {"account/hpc/preference", "Unknown Error"},
        {nullptr, "Unknown Error"},
        {nullptr, "Unknown Error"},
        {"user/event/add", "Error Logging User Event"},
        {nullptr, "Unknown Error"},
    };
    const ScopedEnvironment address("VELMORA_API_URL", "velmora.example:8443");
    const CloudAPIImpl impl;
    for (quint32 code = 0; code < 34; ++code) {
        const auto type = static_cast<RequestType>(code);
        const auto &[path, title] = table[code];
        EXPECT_EQ(errorTitle(type).toStdString(), title) << code;
        EXPECT_EQ(impl.endpointUrl(type).toString().toStdString(),
                  path ? std::string("https://velmora.example:8443/api/") + path : "")
            << code;
        const ApiError error = makeError(418, type, R"({"message":"m"})");
        EXPECT_EQ(error.errorTitle + error.errorMessage, title + std::string("m")) << code;
    }
    EXPECT_EQ(errorTitle(static_cast<RequestType>(4294967295u)), QStringLiteral("Unknown Error"));
}

TEST(Endpoints, FileCodesAnnounceNoContentType)
{
    const CloudAPIImpl impl;
    for (quint32 code = 0; code < 33; ++code) {
        const QNetworkRequest request = impl.buildRequest(static_cast<RequestType>(code));
        const bool files = code == 4 || code == 5 || code == 7;
        EXPECT_EQ(request.header(QNetworkRequest::ContentTypeHeader).toString().toStdString(),
                  files ? "" : "application/json")
            << code;
        EXPECT_FALSE(request.hasRawHeader("Authorization")) << code;
    }
}

TEST(Endpoints, EnvironmentWinsOverThePortalWhenNotEmpty)
{
    const std::pair<int, const char *> portals[] = {{0, "https://test.velmora.example/api/"},
                                                    {1, "https://dev.velmora.example/api/"},
                                                    {2, "https://portal.velmora.example/api/"},
                                                    {3, "https:///api/"},
                                                    {-1, "https:///api/"}};
    CloudAPIImpl impl;
    for (const QByteArray &value : {QByteArray(), QByteArray("")}) {
        const ScopedEnvironment address("VELMORA_API_URL", value);
        EXPECT_EQ(CloudAPIImpl().baseUrl(), QStringLiteral("https://portal.velmora.example/api/")) << "the default";
        for (const auto &[portal, url] : portals) {
            impl.setAPIPortal(static_cast<PortalTarget>(portal));
            EXPECT_EQ(impl.baseUrl().toStdString(), url);
        }
    }
    const ScopedEnvironment address("VELMORA_API_URL", "h%1:99"); // substituted as it stands
    EXPECT_EQ(impl.baseUrl().toStdString(), "https://h%1:99/api/");
}

TEST_F(TransportTest, PortalWithoutHostCompletesOnce)
{
    const ScopedEnvironment address("VELMORA_API_URL", QByteArray());
    api->setAPIPortal(static_cast<PortalTarget>(3));
    for (const char *name : {"getJobDetails", "getUsersFileList", "untagJob", "deleteFile", "getAllJobDetails"}) {
        run(operation(name));
        settle();
        EXPECT_EQ(done.calls, 1) << name;
        EXPECT_EQ(done.error.errorCode, 0) << name;
    }
    EXPECT_EQ(api->currentNetworkStatus(), -1);
    EXPECT_EQ(server.requests().size(), 0);
}

TEST_F(TransportTest, PortalChangesTakeEffectAtTheNextRequest)
{
    run(operation("getJobDetails"));
    ScriptedServer other;
    const ScopedEnvironment address("VELMORA_API_URL", other.host());
    run(operation("getJobDetails"));
    EXPECT_EQ(server.requests().size(), 1);
    EXPECT_EQ(other.requests().size(), 1);
}

TEST_F(TransportTest, UntrustedCertificateIsCodeZero)
{
    const ScopedTrust nobody{QByteArray()};
    run(operation("getJobDetails"));
    EXPECT_EQ(done.error.errorCode, 0);
    EXPECT_TRUE(done.isDefault);
    EXPECT_EQ(server.requestsBegun(), 0) << "nothing may be sent to a server that is not trusted";
}

TEST_F(TransportTest, NetworkStatusIsPositiveWhenAnythingComesBack)
{
    logIn();
    server.next(answer(200, "x"));
    EXPECT_EQ(api->currentNetworkStatus(), 1);
    const ReceivedRequest probe = server.requests().last();
    EXPECT_EQ(probe.verb + " " + probe.target, "GET /api/");
    EXPECT_TRUE(probe.header("Authorization").isNull() && probe.header("Content-Type").isNull()) << probe.head.data();
    server.next(answer(500, "<html>"));
    EXPECT_EQ(api->currentNetworkStatus(), 1);
    server.next(answer(200, ""));
    EXPECT_EQ(api->currentNetworkStatus(), -1);
    server.next(hangUp());
    EXPECT_EQ(api->currentNetworkStatus(), -1);
    server.close(); // now refused
    EXPECT_EQ(api->currentNetworkStatus(), -1);
    settle();
    EXPECT_TRUE(networkOf(*api).findChildren<QNetworkReply *>().isEmpty()) << "the replies are released";
    EXPECT_EQ(log.lines().last(), QStringLiteral("Cloud API: Network Manager Cleared"));
}

} // namespace
