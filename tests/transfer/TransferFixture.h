#pragma once

// A scripted service with its storage: one job "J1" with a key, an upload address and a listing. Service paths begin
// with /api/, storage paths with /s/: /s/up takes uploads, /s/p0, /s/p1, … hold pieces in the order of `piece`.

#include "support/Loopback.h"
#include "support/Parts.h"
#include "support/TestFolder.h"

#include "crypto/FileCipher.h"

#include <filesystem>

using namespace Velmora;

constexpr int mebibyte = 1024 * 1024;
constexpr auto addressPath = "/api/job/files/uploadUrl/J1", listPath = "/api/job/files/list/J1",
               keyPath = "/api/job/key";

constexpr bool onWindows = std::filesystem::path::preferred_separator == '\\';

inline QString pieceName(int number, const QString &base = "out/res.dat")
{
    return base + QStringLiteral("._%1_00003").arg(number, 5, 10, QLatin1Char('0'));
}

inline void change(QJsonArray &objects, int index, const char *member, const QJsonValue &value)
{
    QJsonObject object = objects[index].toObject();
    object[member] = value;
    objects[index] = object;
}

/// An answer in chunks, without the last, empty one.
inline QByteArray chunked(const QByteArray &body)
{
    const int half = body.size() / 2;
    QByteArray bytes = "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n";
    for (const QByteArray &part : {body.left(half), body.mid(half)})
        bytes += QByteArray::number(part.size(), 16) + "\r\n" + part + "\r\n";
    return bytes;
}

/// What the callbacks of some transfers received. One that begins after all others completed begins anew.
template <class Details> struct Transfer {
    int begun = 0, completions = 0;
    ApiError error;
    std::int64_t progress = 0;
    bool monotone = true; ///< and none after the completion

    auto progressed()
    {
        return [this](const Details &, std::int64_t bytes) {
            monotone = monotone && completions == 0 && progress < bytes;
            progress = bytes;
        };
    }
    auto completed()
    {
        if (begun == completions)
            *this = {};
        ++begun;
        return [this](const ApiError &outcome, const Details &) {
            ++completions;
            error = outcome;
        };
    }
    bool wait(int hanging = 0) ///< until all but these have completed
    {
        const bool completed = EVENTUALLY(completions + hanging >= begun);
        settle();
        return completed && completions + hanging == begun && (monotone || begun > 1);
    }
    void expect(int code, const std::string &title = {}, const std::string &messagePart = {}) const
    {
        EXPECT_EQ(error.errorCode, code) << error.errorMessage;
        EXPECT_EQ(error.errorTitle, title);
        EXPECT_NE(error.errorMessage.find(messagePart), std::string::npos) << error.errorMessage;
        EXPECT_EQ(error.errorMessage.find("sig="), std::string::npos) << "a signature got out";
    }
};

struct TransferTest : FolderTest {
    TransferTest()
    {
        loopback.server.setHandler([this](const ReceivedRequest &request) { return serve(request); });
        partsOf(*api).grants.setClock([this] { return now; });
        logIn("a@b");
    }
    ~TransferTest() override
    {
        api.reset();
        EXPECT_EQ(filesIn("tmp"), QStringList()) << "temporary files left behind";
        for (const QByteArray &secret : {QByteArray("the-token"), QByteArray("sig="), key, key.toBase64(), key.toHex()})
            EXPECT_EQ(log.text().find(secret.toStdString()), std::string::npos) << secret.data() << '\n' << log.text();
    }

    Answer serve(const ReceivedRequest &request)
    {
        const QString path = request.target;
        for (const QString &begin : faults.keys())
            if (path.startsWith(begin))
                return faults[begin];
        const QMap<QString, QByteArray> answers{
            {"/api/auth/login", R"({"idToken":"the-token","refreshToken":"r","expiresIn":3600})"},
            {keyPath, "{\"key\":{\"plaintextKey\":\"" + key.toBase64() + "\"}}"},
            {addressPath, QJsonDocument(address).toJson()},
            {listPath, QJsonDocument(listing).toJson()}};
        if (answers.contains(path))
            return answer(200, answers[path]);
        if (stored.contains(path))
            return answer(200, stored[path], "application/octet-stream");
        return answer(path.startsWith("/s/up") ? 204 : 404);
    }
    qint64 seen(const QByteArray &target) const
    {
        const QList<ReceivedRequest> &all = loopback.server.requests();
        return std::count_if(all.begin(), all.end(), [&](const auto &each) { return each.target.startsWith(target); });
    }

    void logIn(const char *user) { EXPECT_TRUE(signIn(*api, user)); }
    void setOptions(const std::function<void(ClientOptions &)> &change)
    {
        change(options);
        api->setClientOptions(options);
    }

    QString url(const QString &path) const { return "https://" + loopback.server.host() + path; }
    QByteArray crypt(const QByteArray &bytes, bool encrypt)
    {
        write("crypt", bytes);
        EXPECT_EQ(cryptFileInPlace(key, qt("crypt"), encrypt), 0);
        const QByteArray result = read("crypt");
        EXPECT_TRUE(QFile::remove(qt("crypt")));
        return result;
    }

    /// For what other threads do to files, which wakes no event loop.
    bool waitForFiles(const std::function<bool()> &condition)
    {
        QTimer tick;
        tick.start(5);
        return waitUntil(condition);
    }

    void upload(const std::string &path) { api->uploadFile({path, "J1", 0}, up.progressed(), up.completed()); }
    void uploadAndWait(const std::string &path)
    {
        upload(path);
        ASSERT_TRUE(up.wait());
    }
    void expectUpload(const std::string &path, int code = 204, const std::string &message = {})
    {
        uploadAndWait(path);
        up.expect(code, code < 300 ? "" : "File Failed to Upload", message);
    }

    /// A piece of a file; `name` is what the service calls it.
    QJsonObject piece(const QString &name, const QByteArray &plain)
    {
        const QString path = QStringLiteral("/s/p%1").arg(stored.size());
        stored[path] = crypt(plain, true);
        return {{"uri", url(path)}, {"method", "GET"}, {"headers", QJsonObject{{"X-Sig", "s"}}}, {"fileName", name}};
    }
    void list(const QJsonArray &chunks, const QString &name = "out/res.dat")
    {
        listing.append(QJsonObject{{"jobId", "J1"}, {"fileName", name}, {"downloadRequest", chunks}});
    }
    FileDownloadDetails wanted(const char *target = "to/res.dat", const char *name = "out/res.dat") const
    {
        return {at(target), {"J1", name, 0, 0, {}, false}};
    }
    void download(const FileDownloadDetails &file) { api->downloadFile(file, down.progressed(), down.completed()); }
    void downloadAndWait(const FileDownloadDetails &file)
    {
        download(file);
        ASSERT_TRUE(down.wait());
    }
    void expectDownload(const FileDownloadDetails &file, int code = 200, const std::string &message = {})
    {
        downloadAndWait(file);
        down.expect(code, code < 300 ? "Download Success" : "Unable to download file", message);
    }

    qint64 now = 1000000000; ///< the clock of addresses, in milliseconds
    ClientOptions options;
    bool tmp = QDir(folder.root()).mkdir("tmp");
    ScopedEnvironment temporary{onWindows ? "TMP" : "TMPDIR", qt("tmp").toUtf8()};
    LogCatcher log;
    Loopback loopback;
    QByteArray key = "0123456789abcdef0123456789ABCDEF";
    QJsonObject address{{"uri", url("/s/up")}};
    QJsonArray listing;
    QMap<QString, Answer> faults; ///< by the beginning of the target
    QMap<QString, QByteArray> stored;
    Transfer<FileUploadDetails> up;
    Transfer<FileDownloadDetails> down;
    std::unique_ptr<CloudAPI> api = std::make_unique<CloudAPI>();
};
