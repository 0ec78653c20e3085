// Requests without an answer: when they end, and what an application learns of it. Whom they trust.

#include "transport/Operations.h"

#include "portal/http/Certificates.h"

#include <QTcpSocket>
#include <QTemporaryDir>

using namespace Velmora;

namespace {

class FailureTest : public TransportTest {
protected:
    std::string write(const char *name, const QByteArray &content) const
    {
        QFile file(folder.filePath(QLatin1String(name)));
        EXPECT_TRUE(file.open(QIODevice::WriteOnly) && file.write(content) == content.size());
        return file.fileName().toStdString();
    }
    void trust(const std::string &fileName)
    {
        ClientOptions options;
        options.caFile = fileName;
        api->setClientOptions(options);
    }
    bool knows(const char *part) const { return api->lastNetworkError().find(part) != std::string::npos; }

    QTemporaryDir folder;
};

TEST_F(FailureTest, lastNetworkError_eachCause_isASentence)
{
    QTcpServer closing; // speaks no TLS
    ASSERT_TRUE(closing.listen(QHostAddress::LocalHost));
    QObject::connect(&closing, &QTcpServer::newConnection, &closing, [&] {
        QTcpSocket *socket = closing.nextPendingConnection();
        QObject::connect(socket, &QTcpSocket::readyRead, socket, [=] {
            socket->write("what?\r\n\r\n");
            socket->disconnectFromHost();
        });
    });
    const QByteArray plain = "127.0.0.1:" + QByteArray::number(closing.serverPort()), nobody = "127.0.0.1:1",
                     here = server.host();
    const Answer whole = answer(200, "{}");
    const struct {
        const char *name;
        const char *part;
        QByteArray host;
        Answer answer = {};
        bool trusts = true;
    } table[] = {
        {"refused", "was refused", nobody},
        {"no TLS", "TLS handshake", plain},
        {"untrusted", "is not trusted", here, {}, false},
        {"closed", "may have been carried out", here, hangUp()},
        {"cut", "closed the connection", here, whole.cut(whole.bytes.size() - 1)},
        {"damaged", "cannot be unpacked", here, answer(200, "x", "", "Content-Encoding: gzip\r\n")},
        {"too large", "too large", here, answer(200, "", "", "X: " + QByteArray(1100000, 'x') + "\r\n")},
        {"informational", "no final answer", here, Answer{"HTTP/1.1 102 Wait\r\n\r\n"}.closed()},
    };
    EXPECT_EQ(api->lastNetworkError(), "");
    for (const auto &row : table) {
        SCOPED_TRACE(row.name);
        const ScopedTrust trust(row.trusts ? testAuthority() : QByteArray());
        const ScopedEnvironment host("VELMORA_API_URL", row.host);
        for (const bool probes : {false, true}) {
            if (!row.answer.bytes.isNull() || row.answer.close)
                server.next(row.answer);
            std::string inside;
            const auto received = [&](const ApiError &error, const JobDetails &) {
                inside = api->lastNetworkError();
                ++done.calls;
                EXPECT_EQ(error.errorCode, 0);
            };
            done = {};
            if (!probes)
                api->getJobDetails("J1", received);
            EXPECT_TRUE(probes ? api->currentNetworkStatus() == -1 : wait(done));
            EXPECT_TRUE(knows(row.part) && knows(row.host.constData())) << api->lastNetworkError();
            EXPECT_EQ(inside, probes ? "" : api->lastNetworkError());
        }
    }
}

TEST_F(FailureTest, lastNetworkError_severalFailures_eachCallbackHasItsOwn)
{
    std::string errors[2];
    int calls = 0;
    const auto keep = [&](std::string &to) {
        return [&](const ApiError &, const JobDetails &) {
            to = api->lastNetworkError();
            ++calls;
        };
    };
    // Both answers are read before the first callback runs: the large one is read aside and holds the other up.
    const QByteArray large = QByteArray(200000, 'x');
    server.next(answer(200, large, "", "Content-Encoding: gzip\r\n"));
    server.next(hangUp());
    api->getJobDetails("J1", keep(errors[0]));
    api->getJobDetails("J1", keep(errors[1]));
    ASSERT_TRUE(waitUntil([&] { return calls == 2; }));
    EXPECT_NE(errors[0], errors[1]);
    EXPECT_EQ((errors[0] + errors[1]).find(idToken), std::string::npos);
}

TEST_F(FailureTest, answerTimeout_noByteForThatLong_endsTheRequest)
{
    logIn();
    ClientOptions options;
    options.answerTimeout = 1;
    api->setClientOptions(options);
    Completion silent[4];
    const char *const names[] = {"getJobDetails", "getUsersFileList", "logUserIn"};
    for (int i = 0; i < 3; ++i) {
        server.next(i == 1 ? answer(200, "[]").paused(30) : silence()); // within its head
        operation(names[i]).call(*api, Into{&silent[i]});
        ASSERT_TRUE(seen(i + 2));
    }
    for (Completion &each : silent) {
        if (&each == &silent[3])
            break;
        ASSERT_TRUE(wait(each));
        EXPECT_EQ(each.error.errorCode, 0);
        EXPECT_TRUE(each.isDefault);
    }
    EXPECT_TRUE(knows("Nothing came for 1 s.")) << api->lastNetworkError();
    options.answerTimeout = -1;
    api->setClientOptions(options);
    run("getJobDetails");
    EXPECT_EQ(done.error.errorCode, 200);
}

TEST_F(FailureTest, caFile_isTrustedInAddition)
{
    const QByteArray another = QByteArray::fromStdString(VelmoraPortal::makeCertificates().caPem);
    const std::string good = write("ca.pem", testAuthority()), other = write("other.pem", another),
                      empty = write("empty.pem", "no certificate"),
                      missing = folder.filePath(QStringLiteral("no.pem")).toStdString();
    const struct {
        QByteArray trusted;
        std::string file;
        int code;
        std::string part;
    } table[] = {{{}, good, 200, ""},
                 {testAuthority(), other, 200, ""},
                 {{}, other, 0, "is not trusted"},
                 {testAuthority(), missing, 0, missing},
                 {testAuthority(), empty, 0, empty},
                 {testAuthority(), "", 200, ""},
                 {{}, "", 0, "is not trusted"}};
    for (const auto &row : table) {
        SCOPED_TRACE(testing::Message() << &row - table);
        const ScopedTrust trusted(row.trusted);
        trust(row.file);
        const int before = server.requests().size();
        run("getJobDetails");
        EXPECT_EQ(done.error.errorCode, row.code);
        EXPECT_EQ(server.requests().size() - before, row.code / 200);
        EXPECT_TRUE(row.code || knows(row.part.c_str())) << api->lastNetworkError();
        EXPECT_EQ(api->currentNetworkStatus(), row.code ? 1 : -1);
        settle();
    }
}

} // namespace
