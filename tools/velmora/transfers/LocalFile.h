/// @file LocalFile.h
/// How a local file is recognised again.
#ifndef VELMORA_CLI_LOCALFILE_H
#define VELMORA_CLI_LOCALFILE_H

#include <QByteArray>
#include <QJsonObject>
#include <QString>

#include <atomic>

namespace Velmora::Cli {

/// Size, time and, where it is known, a hash of the content.
struct LocalFile {
    qint64 size = -1; ///< negative when there is no file
    qint64 time = 0;  ///< of the last change, in milliseconds
    QByteArray hash;  ///< in hexadecimal digits

    /// Without a hash.
    static LocalFile at(const QString &path);
    static LocalFile of(const QJsonObject &object);
    QJsonObject toJson() const;
    bool looksLike(const LocalFile &other) const { return size >= 0 && size == other.size && time == other.time; }
    /// Whether the file at `path` is this one. Reads it only where its time differs.
    bool isAt(const QString &path) const;
};

/// The SHA-256 of a file; empty when it cannot be read or `stop` is set.
QByteArray hashOf(const QString &path, const std::atomic<bool> &stop);

} // namespace Velmora::Cli

#endif
