#pragma once

// A portal and its storage, scripted: one job "J1" with a key, an upload address and a listing.

#include "support/Internals.h"
#include "support/Loopback.h"

#include "transfer/FileCipher.h"

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMap>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <memory>
#include <vector>

using namespace Velmora;

/// What the callbacks of one transfer received.
template <class Details> struct Transfer {
    int completions = 0;
    ApiError error;
    Details details;
    std::vector<std::int64_t> progress;
    bool progressAfterEnd = false;
    std::function<void()> onEnd; ///< may destroy everything but this record
    std::function<void()> onProgress;

    std::function<void(const Details &, std::int64_t)> progressed()
    {
        return [this](const Details &, std::int64_t bytes) {
            progress.push_back(bytes);
            progressAfterEnd = progressAfterEnd || completions > 0;
            if (onProgress)
                onProgress();
        };
    }
    std::function<void(const ApiError &, const Details &)> completed()
    {
        return [this](const ApiError &outcome, const Details &received) {
            ++completions;
            error = outcome;
            details = received;
            if (onEnd)
                onEnd();
        };
    }
    bool monotone() const
    {
        return !progressAfterEnd &&
               std::adjacent_find(progress.begin(), progress.end(), std::greater_equal<>()) == progress.end();
    }
};

class TransferTest : public testing::Test {
protected:
    TransferTest()
    {
        loopback.server.setHandler([this](const ReceivedRequest &request) { return serve(request); });
        api->logUserIn("a@b", "p", "", {});
        EXPECT_TRUE(waitUntil([this] { return api->isUserLoggedIn(); }));
    }
    ~TransferTest() override
    {
        api.reset();
        EXPECT_EQ(
            QDir(folder.filePath(QStringLiteral("tmp"))).entryList(QDir::AllEntries | QDir::NoDotAndDotDot).size(), 0)
            << "temporary files left behind";
    }

    static QByteArray json(const QJsonObject &object) { return QJsonDocument(object).toJson(); }

    Answer serve(const ReceivedRequest &request)
    {
        const QString path = QString::fromUtf8(request.target);
        for (auto scripted = faults.begin(); scripted != faults.end(); ++scripted) {
            if (path.startsWith(scripted.key()))
                return *scripted;
        }
        if (path == QLatin1String("/api/auth/login"))
            return answer(200, R"({"idToken":"the-token","refreshToken":"r","expiresIn":3600})");
        if (path == QLatin1String("/api/job/key"))
            return answer(200, json({{"key", QJsonObject{{"plaintextKey", QString::fromLatin1(key.toBase64())}}}}));
        if (path == QLatin1String("/api/job/files/uploadUrl/J1"))
            return answer(200, json(address));
        if (path == QLatin1String("/api/job/files/list/J1"))
            return answer(200, QJsonDocument(listing).toJson());
        if (path.startsWith(QLatin1String("/s/")) && stored.contains(path))
            return answer(200, stored[path], "application/octet-stream");
        return answer(path.startsWith(QLatin1String("/s/up")) ? 204 : 404);
    }

    QString url(const QString &path) const
    {
        return QStringLiteral("https://%1%2").arg(QString::fromUtf8(loopback.server.host()), path);
    }
    QByteArray write(const QString &name, const QByteArray &content)
    {
        QFile file(folder.filePath(name));
        EXPECT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(content);
        return file.fileName().toUtf8();
    }
    static QByteArray read(const QString &path)
    {
        QFile file(path);
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }
    QByteArray crypt(const QByteArray &bytes, bool encrypt)
    {
        const QString in = folder.filePath(QStringLiteral("crypt.in"));
        const QString out = folder.filePath(QStringLiteral("crypt.out"));
        write(QStringLiteral("crypt.in"), bytes);
        const std::atomic<bool> stop{false};
        EXPECT_TRUE((encrypt ? encryptFile : decryptFile)(key, in, out, stop).ok());
        const QByteArray result = read(out);
        QFile::remove(in);
        QFile::remove(out);
        return result;
    }
    int seen(const char *target) const
    {
        int count = 0;
        for (const ReceivedRequest &request : loopback.server.requests())
            count += request.target.startsWith(target) ? 1 : 0;
        return count;
    }
    static QByteArray noise(int size)
    {
        QByteArray bytes(size, '\0');
        for (int i = 0; i < size; ++i)
            bytes[i] = static_cast<char>((i % 4096 * 131 + i / 251) & 0xff);
        return bytes;
    }

    // Upload
    FileUploadDetails source(const QByteArray &path) const { return {path.toStdString(), "J1", 0}; }
    void upload(const FileUploadDetails &file) { api->uploadFile(file, up.progressed(), up.completed()); }

    // Download
    /// A piece of `content`; `name` is what the service calls it.
    QJsonObject piece(const QString &name, const QByteArray &plain)
    {
        const QString path = QStringLiteral("/s/p%1").arg(stored.size());
        stored[path] = crypt(plain, true);
        return {{"uri", url(path)}, {"method", "GET"}, {"headers", QJsonObject{{"X-Sig", "s"}}}, {"fileName", name}};
    }
    void list(const QJsonArray &chunks, const QString &name = QStringLiteral("out/res.dat"))
    {
        listing = {QJsonObject{{"jobId", "J1"}, {"fileName", name}, {"downloadRequest", chunks}}};
    }
    QString targetPath() const { return folder.filePath(QStringLiteral("to/res.dat")); }
    FileDownloadDetails wanted(const char *name = "out/res.dat") const
    {
        CloudFile file;
        file.jobId = "J1";
        file.fileName = name;
        return {targetPath().toStdString(), file};
    }
    void download(const FileDownloadDetails &file) { api->downloadFile(file, down.progressed(), down.completed()); }
    QStringList filesBeside() const
    {
        return QDir(folder.filePath(QStringLiteral("to"))).entryList(QDir::Files | QDir::Hidden);
    }

    QTemporaryDir folder;
    bool tmp = QDir(folder.path()).mkdir(QStringLiteral("tmp"));
    ScopedEnvironment temporary{"TMPDIR", folder.filePath(QStringLiteral("tmp")).toUtf8()};
    Loopback loopback;
    QByteArray key = QByteArray("0123456789abcdef0123456789ABCDEF");
    QJsonObject address{{"uri", url(QStringLiteral("/s/up"))}};
    QJsonArray listing;
    QMap<QString, Answer> faults; ///< by the beginning of the target
    QMap<QString, QByteArray> stored;
    Transfer<FileUploadDetails> up;
    Transfer<FileDownloadDetails> down;
    std::unique_ptr<CloudAPI> api = std::make_unique<CloudAPI>();
};
