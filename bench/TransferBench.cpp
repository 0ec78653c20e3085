/// @file TransferBench.cpp
/// Speed of whole transfers against bare clients in the same run, as rows of a Markdown table; then the pauses of
/// the owner's event loop and the growth of memory.
///
///     velmora_transfer_bench [--dir DIR] [--size MIB] [--files N] [--rounds N] [--only PART] [--long MIB,MIB...]
///
/// PART is large, small or long. The portal runs in a process of its own, on this machine: what it takes is the
/// same for ours and the peer. DIR needs room for six files of the size.
#include "Measure.h"
#include "Portal.h"
#include "Rows.h"

#include <velmora/CloudAPI.h>
#include <velmora/TarnCrypt.h>

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFile>
#include <QLoggingCategory>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QProcess>
#include <QTemporaryDir>
#include <QTimer>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <vector>

namespace {

using namespace Bench;

/// The library as an application uses it.
class Client {
public:
    Client(const QString &host, const QString &user, const QString &password)
    {
        qputenv("VELMORA_API_URL", host.toUtf8());
        finish([&](const auto &done) {
            m_api.logUserIn(user.toStdString(), password.toStdString(), "",
                            [done](const Velmora::ApiError &error) { done(error); });
        });
    }

    void upload(const QStringList &paths, const QString &job)
    {
        all(paths, [&](const QString &path, const auto &done) {
            Velmora::FileUploadDetails file;
            file.localFileLocation = path.toStdString();
            file.cloudFileJobID = job.toStdString();
            m_api.uploadFile(file, {}, [done](const auto &error, const auto &) { done(error); });
        });
    }

    std::list<Velmora::CloudFile> files(const QString &job)
    {
        std::list<Velmora::CloudFile> list;
        finish([&](const auto &done) {
            m_api.getJobFileList(job.toStdString(), true, [&list, done](const auto &error, const auto &files) {
                list = files;
                done(error);
            });
        });
        return list;
    }

    void download(const std::list<Velmora::CloudFile> &files, const QString &folder)
    {
        all(files, [&](const Velmora::CloudFile &cloudFile, const auto &done) {
            Velmora::FileDownloadDetails file;
            file.localFileLocation = folder.toStdString() + '/' + cloudFile.fileName;
            file.cloudFileDetails = cloudFile;
            m_api.downloadFile(file, {}, [done](const auto &error, const auto &) { done(error); });
        });
    }

private:
    using Done = std::function<void(const Velmora::ApiError &)>;

    void finish(const std::function<void(const Done &)> &start)
    {
        QEventLoop loop;
        bool over = false;
        start([&](const Velmora::ApiError &error) {
            require(Velmora::succeeded(error), error.errorTitle + ": " + error.errorMessage);
            over = true;
            loop.quit();
        });
        if (!over)
            loop.exec();
    }

    template <typename List, typename Start> void all(const List &list, const Start &start)
    {
        finish([&](const Done &done) {
            auto left = std::make_shared<std::size_t>(list.size());
            for (const auto &item : list)
                start(item, [left, done](const Velmora::ApiError &error) {
                    if (!Velmora::succeeded(error) || --*left == 0)
                        done(error);
                });
        });
    }

    Velmora::CloudAPI m_api;
};

QNetworkRequest requestTo(const QJsonObject &address, const QString &name = {}, qint64 size = 0)
{
    QNetworkRequest request(QUrl(filled(address[QStringLiteral("uri")].toString(), name, size)));
    const QJsonObject headers = address[QStringLiteral("headers")].toObject();
    for (auto header = headers.begin(); header != headers.end(); ++header)
        request.setRawHeader(header.key().toUtf8(), filled(header.value().toString(), name, size).toUtf8());
    return request;
}

void encrypt(const QString &in, const QString &out, const QByteArray &key)
{
    const int code = Velmora::TarnCrypt::do_encode_binfile(in.toUtf8().constData(), out.toUtf8().constData(),
                                                           reinterpret_cast<const unsigned char *>(key.constData()),
                                                           Velmora::jobFileIv);
    require(code == 0, "the peer's encryption failed");
}

void decrypt(const QString &in, const QString &out, const QByteArray &key)
{
    const int code = Velmora::TarnCrypt::do_decode_binfile(in.toUtf8().constData(), out.toUtf8().constData(),
                                                           reinterpret_cast<const unsigned char *>(key.constData()),
                                                           Velmora::jobFileIv);
    require(code == 0, "the peer's decryption failed");
}

void bareUpload(const QJsonObject &address, const QString &path)
{
    QNetworkAccessManager manager;
    QFile file(path);
    require(file.open(QIODevice::ReadOnly), "cannot read the peer's file");
    await(manager.post(requestTo(address, QStringLiteral("peer"), file.size()), &file));
}

/// All at once, each file under its own name.
void bareUploads(const QJsonObject &address, const QStringList &paths)
{
    QNetworkAccessManager manager;
    std::vector<QNetworkReply *> replies;
    for (const QString &path : paths) {
        auto *file = new QFile(path);
        require(file->open(QIODevice::ReadOnly), "cannot read the peer's file");
        replies.push_back(manager.put(requestTo(address, QFileInfo(path).fileName(), file->size()), file));
        file->setParent(replies.back());
    }
    for (QNetworkReply *reply : replies)
        await(reply);
}

/// All pieces at once, each into a file of its own.
void bareDownload(const QJsonArray &pieces, const QString &folder)
{
    QNetworkAccessManager manager;
    std::vector<QNetworkReply *> replies;
    for (int i = 0; i < pieces.size(); ++i) {
        auto *file = new QFile(folder + QStringLiteral("/peer.") + QString::number(i));
        require(file->open(QIODevice::WriteOnly), "cannot write the peer's file");
        QNetworkReply *reply = manager.get(requestTo(pieces[i].toObject()));
        file->setParent(reply);
        const auto drain = [reply, file] { require(file->write(reply->readAll()) >= 0, "the peer cannot write"); };
        QObject::connect(reply, &QNetworkReply::readyRead, drain);
        QObject::connect(reply, &QNetworkReply::finished, drain);
        replies.push_back(reply);
    }
    for (QNetworkReply *reply : replies)
        await(reply);
}

std::string enc(bool encrypt, const QByteArray &key, const std::string &in, const std::string &out)
{
    const QByteArray iv(reinterpret_cast<const char *>(Velmora::jobFileIv), sizeof Velmora::jobFileIv);
    return std::string("openssl enc ") + (encrypt ? "-e" : "-d") + " -aes-256-cbc -bufsize 1048576 -K " +
           key.toHex().toStdString() + " -iv " + iv.toHex().toStdString() + " -in '" + in + "' -out '" + out + '\'';
}

/// A section of curl's configuration file.
std::string curlSection(const Portal &portal, const QNetworkRequest &request, const std::string &what)
{
    std::string text = "next\nsilent\nshow-error\nfail\ncacert = \"" + portal.caFile().toStdString() + "\"\nurl = \"" +
                       request.url().toEncoded().toStdString() + "\"\n" + what;
    for (const QByteArray &name : request.rawHeaderList())
        text += "header = \"" + name.toStdString() + ": " + request.rawHeader(name).toStdString() + "\"\n";
    return text;
}

void curl(const QString &folder, const std::string &sections)
{
    const QString path = folder + QStringLiteral("/curl.conf");
    QFile file(path);
    require(file.open(QIODevice::WriteOnly) && file.write(sections.c_str()) >= 0, "cannot write curl's configuration");
    file.close();
    run("curl --parallel --parallel-max 50 --config '" + path.toStdString() + "' >'" + folder.toStdString() +
        "/curl.out' 2>&1");
}

void largeFiles(Portal &portal, Client &client, const QString &folder, std::size_t size, int rounds)
{
    const QString plain = folder + QStringLiteral("/plain");
    const QString cipher = folder + QStringLiteral("/cipher");
    const QString back = folder + QStringLiteral("/back");
    QDir().mkpath(back);
    writePlain(plain.toStdString(), size);
    portal.setStorage(
        {{QStringLiteral("upload"), QStringLiteral("post")}, {QStringLiteral("download"), QStringLiteral("get")}});
    const QString job = portal.newJob();
    const QByteArray key = portal.key(job);
    const QJsonObject address = portal.uploadAddress(job);
    const auto upload = [&] { client.upload({plain}, job); };
    row("whole upload", "encryption, then a bare POST", 1.05, rounds, upload, [&] {
        encrypt(plain, cipher, key);
        bareUpload(address, cipher);
    });
    const auto curlUpload = [&](const std::string &path) {
        const QNetworkRequest request =
            requestTo(address, QStringLiteral("peer"), QFile(QString::fromStdString(path)).size());
        curl(folder,
             curlSection(portal, request, "upload-file = \"" + path + "\"\nrequest = POST\nheader = Expect:\n"));
    };
    row("whole upload", "openssl enc, then curl -T", 0, rounds, upload, [&] {
        run(enc(true, key, plain.toStdString(), cipher.toStdString()));
        curlUpload(cipher.toStdString());
    });

    const qint64 mebibyte = 1 << 20;
    for (const int pieces : {1, 8}) {
        portal.setStorage({{QStringLiteral("pieceSize"),
                            (static_cast<qint64>(size) + pieces - 1) / pieces / mebibyte * mebibyte + (pieces == 1)}});
        QJsonArray requests;
        for (const auto &file : portal.files(job))
            if (file.toObject()[QStringLiteral("fileName")] == QLatin1String("plain"))
                requests = file.toObject()[QStringLiteral("downloadRequest")].toArray();
        require(requests.size() == pieces, "the portal made " + std::to_string(requests.size()) + " pieces");
        std::list<Velmora::CloudFile> files = client.files(job);
        files.remove_if([](const Velmora::CloudFile &file) { return file.fileName != "plain"; });
        const auto download = [&] { client.download(files, back); };
        row("whole download, pieces: " + std::to_string(pieces), "bare GETs written to files", 1.15, rounds, download,
            [&] { bareDownload(requests, folder); });
        requireSame(plain.toStdString(), back.toStdString() + "/plain");
        if (pieces > 1)
            continue;
        row("whole download, pieces: 1", "a bare GET written to a file, then do_decode_binfile", 0, rounds, download,
            [&] {
                bareDownload(requests, folder);
                decrypt(folder + QStringLiteral("/peer.0"), back + QStringLiteral("/peer"), key);
            });
        row("whole download, pieces: 1", "curl, then openssl enc -d", 0, rounds, download, [&] {
            curl(folder,
                 curlSection(portal, requestTo(requests[0].toObject()), "output = \"" + cipher.toStdString() + "\"\n"));
            run(enc(false, key, cipher.toStdString(), back.toStdString() + "/peer"));
        });
        requireSame(plain.toStdString(), back.toStdString() + "/peer");
    }
}

void smallFiles(Portal &portal, Client &client, const QString &folder, int count, int rounds)
{
    portal.setStorage({{QStringLiteral("upload"), QStringLiteral("put")}, {QStringLiteral("pieceSize"), 1 << 20}});
    const QString job = portal.newJob();
    const QByteArray key = portal.key(job);
    const QJsonObject address = portal.uploadAddress(job);
    const QString back = folder + QStringLiteral("/small");
    QDir().mkpath(back);
    QStringList paths;
    QStringList ciphers;
    std::string uploads;
    for (int i = 0; i < count; ++i) {
        const QString name = QStringLiteral("small") + QString::number(i);
        const QString cipher = back + QStringLiteral("/cipher") + QString::number(i);
        paths.append(folder + QLatin1Char('/') + name);
        ciphers.append(cipher);
        writePlain(paths.back().toStdString(), 4096);
        encrypt(paths.back(), cipher, key);
        uploads += curlSection(portal, requestTo(address, name, QFile(cipher).size()),
                               "upload-file = \"" + cipher.toStdString() + "\"\nheader = Expect:\n");
    }
    const std::string files = std::to_string(count) + " files of 4 KiB, ";
    row(
        files + "up", "curl --parallel, encrypted before", 1, rounds, [&] { client.upload(paths, job); },
        [&] { curl(folder, uploads); });
    row(
        files + "up", "bare PUTs, encrypted before", 0, rounds, [&] { client.upload(paths, job); },
        [&] { bareUploads(address, ciphers); });
    for (const QString &cipher : ciphers)
        portal.removeFile(job, QFileInfo(cipher).fileName());
    std::string downloads;
    QJsonArray requests;
    for (const auto &file : portal.files(job)) {
        requests.append(file.toObject()[QStringLiteral("downloadRequest")].toArray()[0]);
        const std::string name = file.toObject()[QStringLiteral("fileName")].toString().toStdString();
        downloads +=
            curlSection(portal, requestTo(file.toObject()[QStringLiteral("downloadRequest")].toArray()[0].toObject()),
                        "output = \"" + back.toStdString() + "/peer-" + name + "\"\n");
    }
    const std::list<Velmora::CloudFile> listed = client.files(job);
    require(listed.size() == static_cast<std::size_t>(count), "not all files are listed");
    row(
        files + "down", "curl --parallel, not decrypted", 1, rounds, [&] { client.download(listed, back); },
        [&] { curl(folder, downloads); });
    row(
        files + "down", "bare GETs, not decrypted", 0, rounds, [&] { client.download(listed, back); },
        [&] { bareDownload(requests, back); });
    requireSame(paths.back().toStdString(),
                back.toStdString() + '/' + QFileInfo(paths.back()).fileName().toStdString());
}

/// One long transfer in a fresh process: `arguments` is up or down, label, folder, host, CA, user, job.
int longTransfer(const QStringList &arguments)
{
    const QString folder = arguments[2];
    const QString job = arguments[6];
    trust(arguments[4]);
    Client client(arguments[3], arguments[5], qEnvironmentVariable("VELMORA_PASSWORD"));
    const auto small = [](const std::string &name) {
        return name.size() >= 4 && name.substr(name.size() - 4) == "warm";
    };
    const std::list<Velmora::CloudFile> listed = client.files(job);
    const auto transfer = [&](bool warm) {
        if (arguments[0] == QLatin1String("up"))
            return client.upload({folder + (warm ? QStringLiteral("/warm") : QStringLiteral("/long"))}, job);
        std::list<Velmora::CloudFile> files = listed;
        files.remove_if([&](const Velmora::CloudFile &file) { return small(file.fileName) != warm; });
        client.download(files, folder + QStringLiteral("/back"));
    };
    transfer(true); // what is loaded and allocated once and for all
    Pauses idle;
    QEventLoop loop;
    QTimer::singleShot(3000, &loop, &QEventLoop::quit);
    loop.exec();
    const std::string idlePauses = idle.text();
    forgetPeak();
    const long before = memory("VmRSS:");
    Pauses busy;
    transfer(false);
    const std::string pauses = busy.text();
    std::printf("| %s | %s | %s | %.1f MiB |\n", qPrintable(arguments[1]), pauses.c_str(), idlePauses.c_str(),
                static_cast<double>(memory("VmHWM:") - before) / 1024);
    return 0;
}

void longTransfers(Portal &portal, const QString &folder, const QStringList &sizes, const QString &slowDisk)
{
    std::printf("\n| Transfer | 99.9 %% of the loop's turns within | the idle loop's | growth of peak memory "
                "|\n|---|---|---|---|\n");
    QDir().mkpath(folder + QStringLiteral("/back"));
    writePlain((folder + QStringLiteral("/warm")).toStdString(), 1 << 20);
    portal.setStorage({{QStringLiteral("upload"), QStringLiteral("post")}, {QStringLiteral("pieceSize"), 1LL << 40}});
    for (const QString &size : sizes) {
        writePlain((folder + QStringLiteral("/long")).toStdString(), size.toULong() << 20);
        const QString job = portal.newJob();
        for (const bool slow : {false, true})
            for (const char *way : {"up", "down"}) {
                if (slow && slowDisk.isEmpty())
                    continue;
                std::fflush(stdout);
                QProcess process;
                process.setProcessChannelMode(QProcess::ForwardedChannels);
                auto environment = QProcessEnvironment::systemEnvironment();
                environment.insert(QStringLiteral("VELMORA_PASSWORD"), portal.password());
                environment.insert(QStringLiteral("TMPDIR"), folder);
                if (slow)
                    environment.insert(QStringLiteral("LD_PRELOAD"), slowDisk);
                process.setProcessEnvironment(environment);
                process.start(QCoreApplication::applicationFilePath(),
                              {QStringLiteral("--measure"), QLatin1String(way),
                               QLatin1String(way) + QLatin1Char(' ') + size + QStringLiteral(" MiB") +
                                   (slow ? QStringLiteral(", 20 MB/s disk") : QString()),
                               folder, portal.host(), portal.caFile(), portal.user(), job});
                require(process.waitForFinished(-1) && process.exitCode() == 0, "a long transfer failed");
                if (qstrcmp(way, "down") == 0)
                    requireSame((folder + QStringLiteral("/long")).toStdString(),
                                (folder + QStringLiteral("/back/long")).toStdString());
            }
    }
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    QLoggingCategory::setFilterRules(QStringLiteral("velmora.debug=false"));
    QStringList arguments = QCoreApplication::arguments().mid(1);
    if (arguments.value(0) == QLatin1String("--measure"))
        return longTransfer(arguments.mid(1));
    QHash<QString, QString> options = {{QStringLiteral("--dir"), QDir::tempPath()},
                                       {QStringLiteral("--size"), QStringLiteral("512")},
                                       {QStringLiteral("--files"), QStringLiteral("1000")},
                                       {QStringLiteral("--rounds"), QStringLiteral("5")},
                                       {QStringLiteral("--only"), QString()},
                                       {QStringLiteral("--long"), QStringLiteral("1024,4096")}};
    require(arguments.size() % 2 == 0, "an option takes a value");
    for (int i = 0; i < arguments.size(); i += 2) {
        require(options.contains(arguments[i]), "unknown option " + arguments[i].toStdString());
        options[arguments[i]] = arguments[i + 1];
    }
    const QString folder = options[QStringLiteral("--dir")];
    const int rounds = options[QStringLiteral("--rounds")].toInt();
    const int count = options[QStringLiteral("--files")].toInt();
    const auto mebibytes = options[QStringLiteral("--size")].toULong();
    require(rounds > 0 && count > 0 && mebibytes >= 8, "bad arguments");

    QTemporaryDir scratch(folder + QStringLiteral("/velmora-transfer-XXXXXX"));
    require(scratch.isValid(), "cannot create a folder in " + folder.toStdString());
    qputenv("TMPDIR", scratch.path().toUtf8()); // where uploads are encrypted, and the portal keeps its files
    const QString only = options[QStringLiteral("--only")];
    const auto wanted = [&](const char *part) { return only.isEmpty() || only == QLatin1String(part); };
    Portal portal(QCoreApplication::applicationDirPath() + QStringLiteral("/velmora-portal"));
    if (wanted("large") || wanted("small")) {
        std::printf("%lu MiB, median of %d rounds, TLS on loopback, portal in a process of its own\n\n", mebibytes,
                    rounds);
        head();
        Client client(portal.host(), portal.user(), portal.password());
        if (wanted("large"))
            largeFiles(portal, client, scratch.path(), mebibytes << 20, rounds);
        if (wanted("small"))
            smallFiles(portal, client, scratch.path(), count, rounds);
    }
    if (wanted("long"))
        longTransfers(portal, scratch.path(), options[QStringLiteral("--long")].split(QLatin1Char(',')),
                      QStringLiteral(VELMORA_SLOW_DISK));
    return 0;
}
