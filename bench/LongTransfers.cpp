#include "LongTransfers.h"

#include "Measure.h"
#include "Rows.h"
#include "Transfers.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QStandardPaths>

#include <algorithm>
#include <cstdio>

namespace Bench {

namespace {

constexpr double goalOfPauses = 4;        // milliseconds more than the idle loop's
constexpr double goalOfMemory = 32;       // MiB
constexpr double goalOfMemoryOfMany = 96; // MiB
constexpr int many = 50;
constexpr int mebibytesOfMany = 20;

/// Runs a transfer in a process of its own. @param way  up or down. @param around  a command that runs it, or nothing
void measure(const Portal &portal, const QString &folder, const QString &job, const QString &way, const QString &label,
             bool slow, QStringList around = {})
{
    QProcess process;
    process.setProcessChannelMode(QProcess::ForwardedChannels);
    auto environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("VELMORA_PASSWORD"), portal.password());
    if (slow)
        environment.insert(QStringLiteral("LD_PRELOAD"), QStringLiteral(VELMORA_SLOW_DISK));
    process.setProcessEnvironment(environment);
    around += {QCoreApplication::applicationFilePath(),
               QStringLiteral("--measure"),
               way,
               label,
               folder,
               portal.host(),
               portal.caFile(),
               portal.user(),
               job};
    std::fflush(stdout);
    process.start(around[0], around.mid(1));
    require(process.waitForFinished(-1) && process.exitCode() == 0, "a measured transfer failed");
}

QStringList longFiles(const QString &folder)
{
    QStringList paths;
    for (const QFileInfo &file : QDir(folder).entryInfoList({QStringLiteral("long*")}, QDir::Files))
        paths.append(file.filePath());
    return paths;
}

/// Up and down, on this disk and on a slow one.
void rowsOf(Portal &portal, const QString &folder, const QString &label, const QStringList &disks)
{
    const QString job = portal.newJob();
    for (const QString &disk : disks) {
        for (const QString &way : {QStringLiteral("up"), QStringLiteral("down")})
            measure(portal, folder, job, way, way + QLatin1Char(' ') + label + disk, !disk.isEmpty());
        for (const QString &path : longFiles(folder))
            requireSame(path.toStdString(),
                        (folder + QStringLiteral("/back/") + QFileInfo(path).fileName()).toStdString());
    }
    for (const QString &path : longFiles(folder)) {
        QFile::remove(path);
        portal.removeFile(job, QFileInfo(path).fileName());
    }
}

void prepare(Portal &portal, const QString &folder, qint64 pieceSize)
{
    QDir().mkpath(folder + QStringLiteral("/back"));
    writePlain((folder + QStringLiteral("/warm")).toStdString(), 1 << 20);
    portal.setStorage({{QStringLiteral("upload"), QStringLiteral("post")},
                       {QStringLiteral("download"), QStringLiteral("get")},
                       {QStringLiteral("pieceSize"), pieceSize}});
}

struct Traffic {
    double read = 0, written = 0; ///< bytes
};

/// What strace recorded of the long files, one record for each thread.
Traffic trafficIn(const QString &folder)
{
    Traffic sum;
    for (const QFileInfo &record : QDir(folder).entryInfoList({QStringLiteral("strace.*")}, QDir::Files)) {
        QFile file(record.filePath());
        require(file.open(QIODevice::ReadOnly), "cannot read what strace recorded");
        for (const QByteArray &line : file.readAll().split('\n')) {
            const QByteArray name = line.left(line.indexOf('('));
            const double bytes = line.mid(line.lastIndexOf("= ") + 2).split(' ')[0].toDouble();
            if (!line.contains("long") || bytes < 0)
                continue;
            if (name.contains("read") || name == "copy_file_range")
                sum.read += bytes;
            if (name.contains("write") || name == "copy_file_range")
                sum.written += bytes;
        }
        file.remove();
    }
    return sum;
}

} // namespace

int measuredTransfer(const QStringList &arguments)
{
    const QString folder = arguments[2], job = arguments[6];
    const bool sends = arguments[0] == QLatin1String("up");
    trust(arguments[4]);
    Client client(arguments[3], arguments[5], qEnvironmentVariable("VELMORA_PASSWORD"));
    client.upload({folder + QStringLiteral("/warm")}, job);
    const std::list<Velmora::CloudFile> listed = client.files(job);
    client.download(named(listed, "warm"), folder + QStringLiteral("/back")); // what is loaded once and for all
    Pauses idle;
    turnFor(3000);
    const double idlePauses = idle.within999();
    forgetPeak();
    const long before = memory("VmRSS:");
    const QStringList paths = longFiles(folder);
    Pauses busy;
    if (sends)
        client.upload(paths, job);
    else
        client.download(named(listed, "long"), folder + QStringLiteral("/back"));
    const double pauses = busy.within999();
    const double growth = static_cast<double>(memory("VmHWM:") - before) / 1024;
    const double goal = paths.size() > 1 ? goalOfMemoryOfMany : goalOfMemory;
    if (arguments[1].isEmpty())
        return 0;
    std::printf("| %s | %.1f ms (longest %.1f ms) | %.1f ms | %.1f ms, %s | %.1f MiB | %.0f MiB, %s |\n",
                qPrintable(arguments[1]), pauses, busy.longest(), idlePauses, idlePauses + goalOfPauses,
                pauses <= idlePauses + goalOfPauses ? "met" : "missed", growth, goal,
                growth <= goal ? "met" : "missed");
    return 0;
}

void longTransfers(Portal &portal, const QString &folder, const QStringList &sizes)
{
    std::printf("\n| Transfer | 99.9 %% of the loop's turns within | the idle loop's | Goal | growth of peak memory | "
                "Goal |\n|---|---|---|---|---|---|\n");
    prepare(portal, folder, 1LL << 40);
    const QStringList disks = {QString(), QStringLiteral(", 20 MB/s disk")};
    for (const QString &size : sizes) {
        writePlain((folder + QStringLiteral("/long")).toStdString(), size.toULong() << 20);
        rowsOf(portal, folder, size + QStringLiteral(" MiB"), disks);
    }
    for (int i = 0; i < many; ++i)
        writePlain((folder + QStringLiteral("/long") + QString::number(i)).toStdString(), mebibytesOfMany << 20);
    rowsOf(portal, folder, QStringLiteral("%1 x %2 MiB at once").arg(many).arg(mebibytesOfMany), disks);
}

void diskTraffic(Portal &portal, const QString &folder, std::size_t mebibytes)
{
    const QString strace = QStandardPaths::findExecutable(QStringLiteral("strace"));
    if (strace.isEmpty()) {
        std::printf("\nDisk traffic: not measured, strace is not installed.\n");
        return;
    }
    const QStringList traced = {strace,
                                QStringLiteral("-ff"),
                                QStringLiteral("-qq"),
                                QStringLiteral("-y"),
                                QStringLiteral("-s0"),
                                QStringLiteral("-e"),
                                QStringLiteral("trace=read,pread64,readv,preadv,write,pwrite64,writev,pwritev,"
                                               "copy_file_range"),
                                QStringLiteral("-o"),
                                folder + QStringLiteral("/strace")};
    const double size = static_cast<double>(mebibytes << 20);
    const QString job = portal.newJob();
    writePlain((folder + QStringLiteral("/long")).toStdString(), mebibytes << 20);
    std::printf("\n| Transfer of %zu MiB | read / size | written / size | Goal |\n|---|---|---|---|\n", mebibytes);
    const struct {
        const char *way, *label;
        qint64 pieces;
        double read, written; ///< goals; the read of several pieces is none
    } rows[] = {{"up", "upload", 1, 1.01, 0},
                {"down", "download, one piece", 1, 0, 1.01},
                {"down", "download, four pieces", 4, 9, 1.8}};
    for (const auto &row : rows) {
        prepare(portal, folder, static_cast<qint64>(mebibytes << 20) / row.pieces);
        measure(portal, folder, job, QLatin1String(row.way), QString(), false, traced);
        const Traffic sum = trafficIn(folder);
        const bool isMet = sum.read / size <= row.read && sum.written / size <= row.written;
        std::printf("| %s | %.2f | %.2f | %s |\n", row.label, sum.read / size, sum.written / size,
                    isMet ? "met" : "missed");
    }
}

} // namespace Bench
