// What arrived, byte for byte, and whether it is an answer.

#include "support/ProxyServer.h"
#include "transport/Operations.h"

#include <QSignalSpy>

#include <zlib.h>

namespace {

const QByteArray list = R"([{"jobId":"J1"}])", refusal = R"({"message":"No such job"})";
constexpr const char *jobTitle = "Error Requesting Job Information", *packed = "Content-Encoding: gzip\r\n";

/// Its trailer may be wrong by that much.
QByteArray gzip(const QByteArray &content, quint32 wrongSum = 0, quint32 wrongLength = 0)
{
    const auto sum = crc32(0, reinterpret_cast<const Bytef *>(content.constData()), static_cast<uInt>(content.size()));
    const quint32 trailer[] = {qToLittleEndian(quint32(sum) + wrongSum),
                               qToLittleEndian(quint32(content.size()) + wrongLength)};
    const QByteArray deflated = qCompress(content, 1).mid(6).chopped(4); // without zlib's head and trailer
    return QByteArray("\x1f\x8b\x08\0\0\0\0\0\0\3", 10) + deflated +
           QByteArray(reinterpret_cast<const char *>(trailer), sizeof trailer);
}

/// An answer with these headers only.
Answer raw(const QByteArray &status, const QByteArray &headers, const QByteArray &body)
{
    return {"HTTP/1.1 " + status + " Scripted\r\n" + headers + "\r\n" + body};
}
Answer gzipped(const QByteArray &body, int status = 200) { return answer(status, body, "application/json", packed); }
/// The body is complete by itself; its length or its last chunk says that more was to come.
Answer cut(int status, const QByteArray &body, const QByteArray &headers = {})
{
    const QByteArray length = "Content-Length: " + QByteArray::number(body.size() + 1) + "\r\n";
    return raw(QByteArray::number(status), headers + length, body).closed();
}
Answer chunked(const QByteArray &end)
{
    return raw("200", "Transfer-Encoding: chunked\r\n", QByteArray::number(list.size(), 16) + "\r\n" + list + end);
}
Answer behind(const QByteArray &informational, const Answer &last)
{
    return {"HTTP/1.1 " + informational + " Wait\r\nLink: </a>\r\n\r\n" + last.bytes};
}

struct Row {
    const char *name;
    Answer answer;
    int code = 0, jobs = 0;
    const char *message = "";
    bool hasBody = true; // when it is an answer
};

TEST_F(TransportTest, answer_anyBytes_isWholeOrNone)
{
    const QByteArray many = '[' + QByteArray("{\"jobId\":\"J1\"},").repeated(20000).chopped(1) + ']';
    const Row table[] = {
        {"with its length", answer(200, list), 200, 1},
        {"shorter than its length", cut(200, list)},
        {"nothing of its length", cut(200, "")},
        {"chunks", chunked("\r\n0\r\n\r\n"), 200, 1},
        {"chunks without the last", chunked("\r\n").closed()},
        {"a chunk cut", chunked("\r\n20\r\n[]").closed()},
        {"chunks that end within a size", chunked("\r\n0").closed()},
        {"ended by the connection", raw("200", "", list).closed(), 200, 1},
        {"head cut", Answer{"HTTP/1.1 200 OK\r\nContent-Length: 2\r\n"}.closed()},
        {"status 000", raw("000", "Content-Length: 16\r\n", list)},
        {"gzip", gzipped(gzip(list)), 200, 1},
        {"gzip by its old name", answer(200, gzip(list), "", "Content-Encoding: X-GZip\r\n"), 200, 1},
        {"gzip of two members", gzipped(gzip(list.left(5)) + gzip(list.mid(5))), 200, 1},
        {"gzip of a large body", gzipped(gzip(many)), 200, 20000},
        {"gzip shorter than its length", cut(200, gzip(list), packed)},
        {"gzip without a byte of its trailer", gzipped(gzip(list).chopped(1))},
        {"gzip with another check sum", gzipped(gzip(list, 1))},
        {"gzip with another length", gzipped(gzip(list, 0, 1))},
        {"gzip with a byte behind it", gzipped(gzip(list) + '\0')},
        {"gzip that is none", gzipped(list)},
        {"gzip that is zlib's own", gzipped(qCompress(list).mid(4))},
        {"gzip of no byte", gzipped(""), 200, 0, "", false},
        {"gzip cut before its first byte", raw("200", packed, "").closed()},
        {"an encoding that was not asked for", answer(200, list, "", "Content-Encoding: deflate\r\n")},
        {"no encoding, said aloud", answer(200, list, "", "Content-Encoding: identity\r\n"), 200, 1},
        {"a byte more than 256 MiB announced", raw("200", "Content-Length: 268435457\r\n", list)},
#if QT_VERSION_MAJOR < 6 // 6.4 drops such a head, and reads what follows up to the end of the connection
        {"head of more than 1 MiB", answer(200, list, "", "X: " + QByteArray(1048576, 'x') + "\r\n")},
#endif
        {"refusal", answer(404, refusal), 404, 0, "No such job"},
        {"refusal shorter than its length", cut(404, refusal), 404, 0, "No such job"},
        {"refusal cut within its message", cut(404, refusal.chopped(1)), 404},
        {"refusal as gzip", gzipped(gzip(refusal), 404), 404, 0, "No such job"},
        {"refusal as damaged gzip", gzipped(gzip(refusal).chopped(1), 404), 404, 0, "", false},
        {"100, then success", behind("100", answer(200, list)), 200, 1},
        {"100, then refusal", behind("100", answer(507, refusal)), 507, 0, "No such job"},
        {"103, then success", behind("103", answer(200, list))},
        {"103, then refusal", behind("103", answer(507, refusal))},
        {"tokens shorter than their length", cut(200, tokens(3600))},
        {"102 and no more", behind("102", {}).closed()},
    };
    int count = 0;
    for (const Row &row : table) {
        SCOPED_TRACE(row.name);
        run("getAllJobDetails", row.answer);
        expect(row.code, row.code >= 300 ? jobTitle : "", row.message);
        EXPECT_EQ(done.result.toArray().size(), row.jobs);
        EXPECT_EQ(server.requests().size(), ++count) << "sent once";
        EXPECT_EQ(server.requests().last().header("Accept-Encoding"), "gzip");
        EXPECT_TRUE(server.requests().last().header("Authorization").isNull()) << "of a login's answer that was cut";
        server.next(row.answer);
        EXPECT_EQ(api->currentNetworkStatus(), row.code > 0 && row.hasBody ? 1 : -1);
        EXPECT_EQ(server.requests().size(), ++count);
        if (row.code == 0) {
            EXPECT_EQ(api->lastNetworkError().find(server.host().constData()), 0U) << api->lastNetworkError();
            run("logUserIn", row.answer);
            expect(0);
            ++count;
        }
    }
}

TEST_F(TransportTest, answer_behindAnInformationalOne_isNotTakenForTheNextRequests)
{
    api->getUsersFileList(true, {}); // keeps the connections: they are closed when nothing is in flight
    server.next(answer(200, "[]").paused());
    ASSERT_TRUE(pausing());
    const Answer late = behind("103", answer(200, R"({"jobId":"late"})"));
    run("getJobDetails", late.paused(late.bytes.indexOf("\r\n\r\n") + 4));
    EXPECT_EQ(done.error.errorCode, 0);
    start("getJobDetails", answer(200, R"({"jobId":"own"})"));
    ASSERT_TRUE(seen(3)) << "waits for the end of another answer";
    server.resume();
    ASSERT_TRUE(wait(done));
    EXPECT_EQ(done.result[QLatin1String("jobId")], QJsonValue(QLatin1String("own")));
    EXPECT_TRUE(EVENTUALLY(log.text().find("Cleared") != std::string::npos));
    settle();
    EXPECT_EQ(partsOf(*api).rest.findChildren<QNetworkAccessManager *>().size(), 1) << "the other one is released";
}

TEST_F(TransportTest, answer_beyondItsLimit_endsBeforeItsEnd)
{
    partsOf(*api).rest.setAnswerLimits({100000, 1000});
    for (const int size : {100000, 100001, 5000000}) {
        SCOPED_TRACE(size);
        const bool fits = size == 100000;
        const QByteArray body = list + QByteArray(size - list.size(), ' '), length = QByteArray::number(size);
        const Answer grows = raw("200", "", body), announced = raw("200", "Content-Length: " + length + "\r\n", body);
        for (const Answer &each :
             {fits ? grows.closed() : grows.paused(grows.bytes.size()), // or never ends
              fits ? announced : announced.paused(announced.bytes.size() - size), gzipped(gzip(body))}) {
            run("getAllJobDetails", each);
            EXPECT_EQ(done.error.errorCode, fits ? 200 : 0);
            EXPECT_EQ(done.result.toArray().size(), fits ? 1 : 0);
            server.next(each);
            EXPECT_EQ(api->currentNetworkStatus(), fits ? 1 : -1);
        }
    }
}

TEST_F(TransportTest, proxy_closingBeforeItAnswers_endsOrDelaysTheRequest)
{
    partsOf(*api).rest.setProxyWatchInterval(50);
    for (const auto &[socks, closing] : {std::pair(false, 1000), {true, 1000}, {false, 1}}) {
        const bool ends = closing > 1;
        const int before = server.requests().size();
        for (const char *name : {"submitNewJob", "getUsersFileList", "untagJob"}) {
            SCOPED_TRACE(testing::Message() << name << socks << ends);
            const ApplicationProxy proxy(server.serverPort(), socks, closing);
            run(name);
            expect(ends ? 0 : 200);
            constexpr const char *reason = "The proxy closed the connection to portal.velmora.example";
            EXPECT_TRUE(!ends || api->lastNetworkError().find(reason) == 0) << api->lastNetworkError();
            EXPECT_GE(proxy.connections(), ends ? 2 : 3) << "closed, watched, used";
            settle();
            EXPECT_EQ(api->currentNetworkStatus(), ends ? -1 : 1);
        }
        EXPECT_EQ(server.requests().size() - before, ends ? 0 : 6) << "each sent once";
    }
}

TEST_F(TransportTest, proxy_andASlowService_isNoReasonToEndTheRequest)
{
    partsOf(*api).rest.setProxyWatchInterval(20);
    const ApplicationProxy proxy(server.serverPort(), false);
    for (const char *name :
         {"getUsersFileList", "submitNewJob", "getUsersFileList"}) { // the last on a reused connection
        start(name, answer(200, "[]").paused());
        ASSERT_TRUE(pausing());
        QTimer over;
        over.start(100);
        EXPECT_TRUE(QSignalSpy(&over, &QTimer::timeout).wait());
        EXPECT_EQ(done.calls, 0);
        server.resume();
        ASSERT_TRUE(wait(done));
        EXPECT_EQ(done.error.errorCode, 200) << name;
    }
    EXPECT_GE(proxy.connections(), 1);
    EXPECT_TRUE(EVENTUALLY(networkOf(*api).findChildren<QNetworkReply *>().isEmpty()));
}

// While the refusal is on its way between Qt's threads, and before the end of the answer; a warning would fail the
// test.
TEST_F(TransportTest, request_refused_isAbortedInSilence)
{
    for (const bool hasFailed : {false, true}) {
        server.next(answer(404, "{}"));
        int answers = 0;
        const auto abort =
            partsOf(*api).rest.exchange({Endpoints::JobFilesList, Verb::Get}, [&](auto &&...) { ++answers; });
        auto *reply = networkOf(*api).findChild<QNetworkReply *>();
        if (hasFailed)
            QObject::connect(reply, &QNetworkReply::errorOccurred, reply, abort);
        else
            QObject::connect(reply, &QNetworkReply::metaDataChanged, reply, abort);
        EXPECT_TRUE(QSignalSpy(reply, &QObject::destroyed).wait());
        EXPECT_EQ(answers, 0);
    }
    setOptions(*api, [](ClientOptions &options) { options.caFile = "missing"; });
    partsOf(*api).rest.exchange({Endpoints::JobFilesList, Verb::Get}, [](auto &&...) { ADD_FAILURE(); })();
    settle();
}

} // namespace
