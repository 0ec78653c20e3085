/// @file TransferBench.cpp
/// Speed of whole transfers against curl and openssl in the same run, as rows of Markdown tables.
///
///     velmora_transfer_bench [--dir DIR] [--size MIB] [--files N] [--rounds N] [--only PART] [--long MIB,MIB...]
///
/// PART is large, small, client, pump, first, long or traffic. The portal runs in a process of its own, on this
/// machine: what it takes is the same for ours and the peer. DIR needs room for six files of the size.
#include "LongTransfers.h"
#include "Rows.h"
#include "Transfers.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QHash>
#include <QLoggingCategory>
#include <QTemporaryDir>

#include <algorithm>
#include <cstdio>
#include <functional>
#include <list>
#include <memory>
#include <vector>

namespace {

using namespace Bench;

constexpr qint64 onePiece = 1LL << 40;

void setForms(Portal &portal, const QString &upload, qint64 pieceSize)
{
    portal.setStorage({{QStringLiteral("upload"), upload},
                       {QStringLiteral("download"), QStringLiteral("get")},
                       {QStringLiteral("pieceSize"), pieceSize}});
}

/// Fetches the pieces by curl; their files, in order.
std::vector<std::string> curlPieces(const Portal &portal, const QJsonArray &pieces, const QString &folder)
{
    std::vector<std::string> paths;
    std::string sections;
    for (const auto &piece : pieces) {
        paths.push_back(folder.toStdString() + "/piece" + std::to_string(paths.size()));
        sections += curlSection(portal, requestTo(piece.toObject()), "output = \"" + paths.back() + "\"\n");
    }
    curl(folder, sections);
    return paths;
}

void largeFiles(Portal &portal, Client &client, const QString &folder, std::size_t size, int rounds)
{
    const QString plain = folder + QStringLiteral("/plain"), cipher = folder + QStringLiteral("/cipher");
    const QString back = folder + QStringLiteral("/back");
    const std::string peer = folder.toStdString() + "/peer";
    QDir().mkpath(back);
    writePlain(plain.toStdString(), size);
    setForms(portal, QStringLiteral("post"), onePiece);
    const QString job = portal.newJob();
    const QByteArray key = portal.key(job);
    const QJsonObject address = portal.uploadAddress(job);
    const auto upload = [&] { client.upload({plain}, job); };
    const auto encrypt = [&] { run(enc(true, key, plain.toStdString(), cipher.toStdString())); };
    const auto send = [&] { curl(folder, curlUpload(portal, address, cipher, QStringLiteral("peer"))); };
    row("upload", "openssl enc, then curl -T", 0.7, rounds, upload, [&] { encrypt(), send(); });
    row("upload", "curl -T of the encrypted file alone", 1.7, rounds, upload, send);

    for (const int pieces : {1, 8}) {
        setForms(portal, QStringLiteral("post"), (static_cast<qint64>(size) + pieces - 1) / pieces);
        QJsonArray requests;
        for (const auto &file : portal.files(job)) {
            if (file.toObject()[QStringLiteral("fileName")] == QLatin1String("plain"))
                requests = file.toObject()[QStringLiteral("downloadRequest")].toArray();
        }
        require(requests.size() == pieces, "the portal made " + std::to_string(requests.size()) + " pieces");
        const auto files = named(client.files(job), "plain");
        const auto download = [&] { client.download(files, back); };
        const std::string what = "download, pieces: " + std::to_string(pieces);
        row(what, "curl, then openssl enc -d", pieces == 1 ? 0.65 : 0.75, rounds, download, [&] {
            std::remove(peer.c_str());
            for (const std::string &path : curlPieces(portal, requests, folder))
                run(enc(false, key, path, pieces == 1 ? peer : "") + (pieces == 1 ? "" : " >>'" + peer + '\''));
        });
        requireSame(plain.toStdString(), peer);
        requireSame(plain.toStdString(), back.toStdString() + "/plain");
        row(what, "curl alone", 0, rounds, download, [&] { curlPieces(portal, requests, folder); });
    }
}

/// How all files of a folder reach a job, and how those whose names begin with "small" come back.
struct Mover {
    std::string name;
    std::function<void(const QStringList &paths, const QString &job)> upload;
    std::function<void(const QString &job, const QString &to)> download;
};

Mover libraryMover(Client &client)
{
    const auto listed = std::make_shared<std::list<Velmora::CloudFile>>(); // by the pass that does not count
    const auto download = [&client, listed](const QString &job, const QString &to) {
        if (listed->empty())
            *listed = named(client.files(job), "small");
        client.download(*listed, to);
    };
    return {{}, [&client](const QStringList &paths, const QString &job) { client.upload(paths, job); }, download};
}

/// The command line client: a new process that signs in, and lists the job's files before it fetches some.
Mover programMover(const Portal &portal, const QString &scratch)
{
    qputenv("VELMORA_USER", portal.user().toUtf8());
    qputenv("VELMORA_PASSWORD", portal.password().toUtf8());
    qputenv("VELMORA_CONFIG_DIR", scratch.toUtf8());
    const auto program = [ca = portal.caFile()](const QString &line) {
        run(QStringLiteral("'%1/velmora' %2 --quiet --json --ca '%3' >/dev/null")
                .arg(QCoreApplication::applicationDirPath(), line, ca)
                .toStdString());
    };
    const auto upload = [=](const QStringList &paths, const QString &job) {
        program(QStringLiteral("upload %1 '%2'").arg(job, QFileInfo(paths[0]).path()));
    };
    const auto download = [=](const QString &job, const QString &to) {
        program(QStringLiteral("download %1 'small*' --to '%2'").arg(job, to));
    };
    return {"velmora, ", upload, download};
}

void smallFiles(Portal &portal, const Mover &ours, const QString &folder, int count, int rounds)
{
    setForms(portal, QStringLiteral("put"), onePiece);
    const QString job = portal.newJob();
    const QByteArray key = portal.key(job);
    const QJsonObject address = portal.uploadAddress(job);
    const QString back = folder + QStringLiteral("/small"), in = folder + QStringLiteral("/in");
    QDir().mkpath(back);
    QDir().mkpath(in);
    QStringList paths;
    std::string uploads, downloads;
    for (int i = 0; i < count; ++i) {
        const QString name = QStringLiteral("small") + QString::number(i), cipher = back + QStringLiteral("/c-") + name;
        paths.append(in + QLatin1Char('/') + name);
        writePlain(paths.back().toStdString(), 4096);
        if (i == 0)
            run(enc(true, key, paths[0].toStdString(), cipher.toStdString()));
        else // all hold the same bytes
            require(QFile::copy(back + QStringLiteral("/c-small0"), cipher), "cannot copy the peer's file");
        uploads += curlUpload(portal, address, cipher, QStringLiteral("c-") + name);
    }
    const std::string what = ours.name + std::to_string(count) + " files of 4 KiB, ";
    const double goal = ours.name.empty() ? 1.5 : 0; // a program has to start and to sign in
    row(
        what + "up", "curl --parallel, encrypted before", goal, rounds, [&] { ours.upload(paths, job); },
        [&] { curl(folder, uploads); });
    for (const auto &file : portal.files(job)) {
        const std::string name = file.toObject()[QStringLiteral("fileName")].toString().toStdString();
        if (name.find("small") == 0)
            downloads += curlSection(
                portal, requestTo(file.toObject()[QStringLiteral("downloadRequest")].toArray()[0].toObject()),
                "output = \"" + back.toStdString() + "/peer-" + name + "\"\n");
    }
    const auto download = [&] { ours.download(job, back); };
    row(what + "down", "curl --parallel, not decrypted, not synced", goal, rounds, download,
        [&] { curl(folder, downloads); });
    row(what + "down", "the same, then each file synced, 16 at a time", 0, rounds, download, [&] {
        curl(folder, downloads);
        run("cd '" + back.toStdString() + "' && ls -U | grep ^peer- | xargs -P 16 -n " +
            std::to_string((count + 15) / 16) + " sync");
    });
    require(QDir(back).entryList({QStringLiteral("small*")}).size() == count, "not all files came back");
    requireSame(paths.back().toStdString(),
                back.toStdString() + '/' + QFileInfo(paths.back()).fileName().toStdString());
}

void pumpedTransfers(Portal &portal, Client &client, const QString &folder, std::size_t size, int rounds)
{
    Client pumped(portal.host(), portal.user(), portal.password());
    pumped.pumpEvery(std::chrono::milliseconds(16));
    const QString path = folder + QStringLiteral("/pumped");
    writePlain(path.toStdString(), size);
    setForms(portal, QStringLiteral("post"), onePiece);
    const QString job = portal.newJob();
    row(
        "upload, pumping every 16 ms", "the same in an event loop", 1.25, rounds, [&] { pumped.upload({path}, job); },
        [&] { client.upload({path}, job); });
    const auto files = named(client.files(job), "pumped");
    row(
        "download, pumping every 16 ms", "the same in an event loop", 1.25, rounds,
        [&] { pumped.download(files, folder + QStringLiteral("/back-pumped")); },
        [&] { client.download(files, folder + QStringLiteral("/back-loop")); });
}

void firstBytes(Portal &portal, Client &client, const QString &folder, const QStringList &sizes, int rounds)
{
    std::printf("\n| Upload, its address known, connection open | first bytes sent after (longest) | Goal |\n"
                "|---|---|---|\n");
    setForms(portal, QStringLiteral("post"), onePiece);
    const QString job = portal.newJob();
    for (const QString &size : sizes) {
        const QString path = folder + QStringLiteral("/first") + size;
        QFile file(path);
        require(file.open(QIODevice::WriteOnly) && file.resize(size.toLongLong() << 20),
                "cannot create " + size.toStdString());
        client.firstByte(path, job);
        std::vector<double> times;
        for (int i = 0; i < std::max(rounds, 11); ++i)
            times.push_back(client.firstByte(path, job));
        std::sort(times.begin(), times.end());
        std::printf("| %s MiB | %.1f ms (%.1f ms) | 100 ms, %s |\n", qPrintable(size), times[times.size() / 2],
                    times.back(), times.back() <= 100 ? "met" : "missed");
    }
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    QLoggingCategory::setFilterRules(QStringLiteral("velmora.debug=false"));
    const QStringList arguments = QCoreApplication::arguments().mid(1);
    if (arguments.value(0) == QLatin1String("--measure"))
        return measuredTransfer(arguments.mid(1));
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
    const QString folder = options[QStringLiteral("--dir")], only = options[QStringLiteral("--only")];
    const int rounds = options[QStringLiteral("--rounds")].toInt();
    const int count = options[QStringLiteral("--files")].toInt();
    const auto mebibytes = options[QStringLiteral("--size")].toULong();
    const QStringList sizes = options[QStringLiteral("--long")].split(QLatin1Char(','));
    const QStringList parts = {QStringLiteral("large"), QStringLiteral("small"), QStringLiteral("pump"),
                               QStringLiteral("first"), QStringLiteral("long"),  QStringLiteral("traffic"),
                               QStringLiteral("client")};
    require(rounds > 0 && count > 0 && mebibytes >= 8 && (only.isEmpty() || parts.contains(only)), "bad arguments");

    QTemporaryDir scratch(folder + QStringLiteral("/velmora-transfer-XXXXXX"));
    require(scratch.isValid(), "cannot create a folder in " + folder.toStdString());
    qputenv("TMPDIR", scratch.path().toUtf8()); // where the portal keeps its files
    const auto wanted = [&](int part) { return only.isEmpty() || only == parts[part]; };
    Portal portal(QCoreApplication::applicationDirPath() + QStringLiteral("/velmora-portal"));
    Client client(portal.host(), portal.user(), portal.password());
    if (wanted(0) || wanted(1) || wanted(2) || wanted(6)) {
        std::printf("%lu MiB, median of %d rounds, TLS on loopback, portal in a process of its own, files in %s\n\n",
                    mebibytes, rounds, qPrintable(folder));
        head();
    }
    if (wanted(0))
        largeFiles(portal, client, scratch.path(), mebibytes << 20, rounds);
    if (wanted(1))
        smallFiles(portal, libraryMover(client), scratch.path(), count, rounds);
    if (wanted(6))
        smallFiles(portal, programMover(portal, scratch.path()), scratch.filePath(QStringLiteral("client")), count,
                   rounds);
    if (wanted(2))
        pumpedTransfers(portal, client, scratch.path(), mebibytes << 20, rounds);
    if (wanted(3))
        firstBytes(portal, client, scratch.path(), QStringList{QStringLiteral("1")} + sizes, rounds);
    if (wanted(4))
        longTransfers(portal, scratch.path(), sizes);
    if (wanted(5))
        diskTraffic(portal, scratch.path(), mebibytes);
    return 0;
}
