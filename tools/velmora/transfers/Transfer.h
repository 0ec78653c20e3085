/// @file Transfer.h
/// Uploads and downloads, and their states.
#ifndef VELMORA_CLI_TRANSFER_H
#define VELMORA_CLI_TRANSFER_H

#include "transfers/LocalFile.h"

#include <velmora/Records.h>

#include <QJsonArray>
#include <QString>

#include <deque>
#include <string>
#include <utility>
#include <vector>

namespace Velmora::Cli {

/// What moves per second, over the last few seconds. Times are in milliseconds.
class Meter {
public:
    void note(qint64 now, qint64 bytes);
    /// 0 while it is unknown.
    double rate() const;

private:
    std::deque<std::pair<qint64, qint64>> m_samples;
};

/// The transfer of one file.
///
///     up:    waiting ─▶ sending ─▶ confirming ─▶ done
///     down:  waiting ─▶ receiving ─▶ joining ─▶ done
///
/// The library reports bytes and the end. The bytes tell the phases in between: some sent, all sent; some
/// received, all received. While a download is joining, the library writes the last pieces and puts the
/// file together. Each phase except done may end in failed or, after Ctrl-C, in undone.
struct Transfer {
    enum class Direction { Up, Down };
    enum class Phase { Waiting, Sending, Confirming, Receiving, Joining, Done, Failed, Undone };

    static Transfer up(const QString &localPath, const std::string &jobId);
    static Transfer down(const CloudFile &file, const QString &localPath);
    /// A transfer that failed before it began.
    static Transfer failed(const CloudFile &file, const ApiError &error);

    bool isActive() const { return phase > Phase::Waiting && phase < Phase::Done; }
    bool hasEnded() const { return phase >= Phase::Done; }
    /// Its bytes take less time than all else of the transfer.
    bool isSmall() const { return total < 1000000; }
    void begin(qint64 now);
    /// @param bytes may include the overhead of a form; what exceeds the file's own bytes is ignored
    void progress(qint64 bytes);
    void end(Phase phase, const ApiError &error, qint64 now);
    /// Ends it before it began: an earlier run has transferred the file.
    void keep();
    /// In percent, from 0 to 100.
    int share() const;

    FileUploadDetails uploadDetails() const;
    FileDownloadDetails downloadDetails() const;

    Direction direction = Direction::Up;
    CloudFile file; ///< uploads: job and name only
    QString localPath;
    qint64 total = 0; ///< encrypted bytes
    qint64 moved = 0; ///< of them
    Phase phase = Phase::Waiting;
    bool kept = false;
    LocalFile local; ///< what is sent or, when it is done, was fetched; only where it is recorded
    ApiError error;
    Meter meter;
    qint64 begun = 0; ///< in milliseconds, as passed to `begin`
    qint64 ended = 0;
};

/// "sending", "done", …
QString phaseText(Transfer::Phase phase);

/// Several transfers that run together.
struct Batch {
    std::vector<Transfer> transfers;
    Meter meter;
    Meter largeMeter; ///< of the large files' bytes
    Meter smallMeter; ///< of small files that end: each takes the time of its requests, whatever its size
    qint64 ended = 0; ///< in milliseconds from the start; 0 while it runs

    int count(Transfer::Phase phase) const;
    qint64 total() const;
    qint64 moved() const;
    /// What earlier runs moved of that.
    qint64 kept() const;
    int countEnded() const;
    /// The missing bytes of transfers that have not ended.
    qint64 left() const;
    /// Notes what has moved until now.
    void note(qint64 now);
    /// Seconds until all have ended, judged by what moved lately; negative when it is not known.
    qint64 secondsLeft() const;
    QJsonArray toJson() const;
};

} // namespace Velmora::Cli

#endif
