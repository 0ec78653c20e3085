#include "transfers/Transfer.h"

#include "common/Json.h"

#include <QFileInfo>

#include <algorithm>
#include <cmath>
#include <numeric>
#include <utility>

namespace Velmora::Cli {

namespace {

constexpr qint64 WindowMs = 5000;
constexpr qint64 CipherBlock = 16;

using Phase = Transfer::Phase;

} // namespace

void Meter::note(qint64 now, qint64 bytes)
{
    m_samples.emplace_back(now, bytes);
    while (m_samples.size() > 2 && m_samples[1].first <= now - WindowMs)
        m_samples.pop_front();
}

double Meter::rate() const
{
    if (m_samples.empty() || m_samples.back().first == m_samples.front().first)
        return 0;
    const double bytes = double(m_samples.back().second - m_samples.front().second);
    return std::max(0.0, bytes * 1000 / double(m_samples.back().first - m_samples.front().first));
}

Transfer Transfer::up(const QString &localPath, const std::string &jobId)
{
    const QFileInfo info(localPath);
    Transfer transfer;
    transfer.direction = Direction::Up;
    transfer.localPath = localPath;
    transfer.file.jobId = jobId;
    transfer.file.fileName = info.fileName().toStdString();
    transfer.total = (info.size() / CipherBlock + 1) * CipherBlock;
    return transfer;
}

Transfer Transfer::down(const CloudFile &file, const QString &localPath)
{
    Transfer transfer;
    transfer.direction = Direction::Down;
    transfer.localPath = localPath;
    transfer.file = file;
    transfer.total = std::max(0LL, file.fileSize);
    return transfer;
}

Transfer Transfer::failed(const CloudFile &file, const ApiError &error)
{
    Transfer transfer = down(file, QString());
    transfer.total = 0;
    transfer.end(Phase::Failed, error, 0);
    return transfer;
}

void Transfer::begin(qint64 now)
{
    begun = now;
    phase = direction == Direction::Up ? Phase::Sending : Phase::Receiving;
}

void Transfer::progress(qint64 bytes)
{
    if (!isActive())
        return;
    moved = std::clamp(bytes, moved, std::max(moved, total));
    if (direction == Direction::Up)
        phase = moved >= total ? Phase::Confirming : Phase::Sending;
    else if (hasReceivedAll(downloadDetails(), moved))
        phase = Phase::Joining;
}

void Transfer::end(Phase how, const ApiError &why, qint64 now)
{
    phase = how;
    ended = now;
    moved = how == Phase::Done ? total : 0; // what arrived in part is not kept
    if (how != Phase::Done)
        error = why;
}

void Transfer::keep()
{
    kept = true;
    end(Phase::Done, {}, 0);
}

int Transfer::share() const
{
    if (phase == Phase::Done)
        return 100;
    return total > 0 ? int(double(moved) / double(total) * 100) : 0;
}

FileUploadDetails Transfer::uploadDetails() const
{
    return {localPath.toStdString(), file.jobId, QFileInfo(localPath).size()};
}

FileDownloadDetails Transfer::downloadDetails() const { return {localPath.toStdString(), file}; }

QString phaseText(Phase phase)
{
    switch (phase) {
    case Phase::Waiting:
        return QStringLiteral("waiting");
    case Phase::Sending:
        return QStringLiteral("sending");
    case Phase::Confirming:
        return QStringLiteral("confirming");
    case Phase::Receiving:
        return QStringLiteral("receiving");
    case Phase::Joining:
        return QStringLiteral("joining");
    case Phase::Done:
        return QStringLiteral("done");
    case Phase::Failed:
        return QStringLiteral("failed");
    case Phase::Undone:
        return QStringLiteral("undone");
    }
    return QString();
}

int Batch::count(Phase phase) const
{
    return int(std::count_if(transfers.begin(), transfers.end(),
                             [phase](const Transfer &transfer) { return transfer.phase == phase; }));
}

qint64 Batch::total() const
{
    return std::accumulate(transfers.begin(), transfers.end(), qint64(0),
                           [](qint64 sum, const Transfer &transfer) { return sum + transfer.total; });
}

qint64 Batch::moved() const
{
    return std::accumulate(transfers.begin(), transfers.end(), qint64(0),
                           [](qint64 sum, const Transfer &transfer) { return sum + transfer.moved; });
}

qint64 Batch::kept() const
{
    return std::accumulate(transfers.begin(), transfers.end(), qint64(0), [](qint64 sum, const Transfer &transfer) {
        return transfer.kept ? sum + transfer.total : sum;
    });
}

int Batch::countEnded() const
{
    return int(std::count_if(transfers.begin(), transfers.end(),
                             [](const Transfer &transfer) { return transfer.hasEnded(); }));
}

void Batch::note(qint64 now)
{
    meter.note(now, moved());
    qint64 large = 0, small = 0;
    for (const Transfer &transfer : transfers) {
        large += !transfer.isSmall() ? transfer.moved : 0;
        small += transfer.isSmall() && transfer.hasEnded() ? 1 : 0;
    }
    largeMeter.note(now, large);
    smallMeter.note(now, small);
}

qint64 Batch::secondsLeft() const
{
    qint64 large = 0, small = 0;
    for (const Transfer &transfer : transfers) {
        if (transfer.hasEnded())
            continue;
        large += !transfer.isSmall() ? transfer.total - transfer.moved : 0;
        small += transfer.isSmall() ? 1 : 0;
    }
    double seconds = 0;
    for (const auto &[missing, rate] : {std::pair(large, largeMeter.rate()), std::pair(small, smallMeter.rate())}) {
        if (missing > 0 && rate <= 0)
            return -1;
        seconds += missing > 0 ? double(missing) / rate : 0;
    }
    return large + small > 0 ? qint64(std::llround(seconds)) : -1;
}

qint64 Batch::left() const
{
    return std::accumulate(transfers.begin(), transfers.end(), qint64(0), [](qint64 sum, const Transfer &transfer) {
        return transfer.hasEnded() ? sum : sum + transfer.total - transfer.moved;
    });
}

QJsonArray Batch::toJson() const
{
    QJsonArray array;
    for (const Transfer &transfer : transfers) {
        QJsonObject object{{QStringLiteral("localFileLocation"), transfer.localPath},
                           {QStringLiteral("state"), phaseText(transfer.phase)}};
        if (transfer.direction == Transfer::Direction::Up) {
            const FileUploadDetails details = transfer.uploadDetails();
            object.insert(QStringLiteral("cloudFileJobID"), QString::fromStdString(details.cloudFileJobID));
            object.insert(QStringLiteral("totalFileSize"), qint64(details.totalFileSize));
        } else {
            object.insert(QStringLiteral("cloudFileDetails"), Cli::toJson(transfer.file));
        }
        if (transfer.kept)
            object.insert(QStringLiteral("kept"), true);
        if (transfer.phase == Phase::Failed)
            object.insert(QStringLiteral("error"), Cli::toJson(transfer.error));
        array.append(object);
    }
    return array;
}

} // namespace Velmora::Cli
