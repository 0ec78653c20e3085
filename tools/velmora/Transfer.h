/// @file Transfer.h
/// Files on their way up or down: where each of them stands.
#ifndef VELMORA_CLI_TRANSFER_H
#define VELMORA_CLI_TRANSFER_H

#include <velmora/Records.h>

#include <QJsonArray>
#include <QString>

#include <deque>
#include <string>
#include <utility>
#include <vector>

namespace Velmora::Cli {

/// Bytes a second over the last few seconds. Times are in milliseconds.
class Meter {
public:
    void note(qint64 now, qint64 bytes);
    /// 0 as long as it is not known.
    double rate() const;

private:
    std::deque<std::pair<qint64, qint64>> m_samples;
};

/// One file.
///
///     up:    waiting ─▶ encrypting ─▶ sending ─▶ confirming ─▶ done
///     down:  waiting ─▶ receiving ─▶ joining ─▶ done
///
/// The library reports bytes and the end. The bytes tell the phases in between: none sent, some sent,
/// all sent; some received, all received. While a download is joining, the library decrypts the last
/// pieces and puts the file together. Each phase except done may end in failed or, after Ctrl-C, in undone.
struct Transfer {
    enum class Direction { Up, Down };
    enum class Phase { Waiting, Encrypting, Sending, Confirming, Receiving, Joining, Done, Failed, Undone };

    static Transfer up(const QString &localPath, const std::string &jobId);
    static Transfer down(const CloudFile &file, const QString &localPath);
    /// One that has failed before it could begin.
    static Transfer failed(const CloudFile &file, const ApiError &error);

    bool isActive() const { return phase > Phase::Waiting && phase < Phase::Done; }
    bool hasEnded() const { return phase >= Phase::Done; }
    /// Only this machine works on it.
    bool isLocal() const;
    void begin(qint64 now);
    /// @param bytes counts what a form adds, too; beyond the file's own bytes it is ignored
    void progress(qint64 bytes);
    void end(Phase phase, const ApiError &error, qint64 now);
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
    ApiError error;
    Meter meter;
    qint64 begun = 0; ///< when
    qint64 ended = 0;
};

/// "encrypting", "done", …
QString phaseText(Transfer::Phase phase);

/// Several files, as one piece of work.
struct Batch {
    std::vector<Transfer> transfers;
    Meter meter;
    qint64 ended = 0; ///< when, in milliseconds from the start; 0 while it lasts

    int count(Transfer::Phase phase) const;
    qint64 total() const;
    qint64 moved() const;
    /// Of files that may still arrive.
    qint64 left() const;
    QJsonArray toJson() const;
};

} // namespace Velmora::Cli

#endif
