#include "session/Tokens.h"

#include "common/Terminal.h"

#include <QDir>
#include <QLockFile>
#include <QSaveFile>
#include <QStandardPaths>
#include <QUrl>

namespace Velmora::Cli {

namespace {

const QString Suffix = QStringLiteral(".token");

QString folder() { return configFolder() + QStringLiteral("/tokens"); }

QString encoded(const std::string &text)
{
    return QString::fromLatin1(QUrl::toPercentEncoding(QString::fromStdString(text)));
}

/// Nothing but a user's name follows the comma, which the encoding leaves in neither.
QString beginningOf(const std::string &host) { return encoded(host) + QLatin1Char(','); }

} // namespace

QString configFolder()
{
    const std::string chosen = Terminal::environment("VELMORA_CONFIG_DIR");
    return chosen.empty()
               ? QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) + QStringLiteral("/velmora")
               : QString::fromStdString(chosen);
}

TokenFile::TokenFile(const std::string &host, const std::string &user)
    : m_path(folder() + QLatin1Char('/') + beginningOf(host) + encoded(user) + Suffix)
{
}

std::string TokenFile::lastUser(const std::string &host)
{
    const QString beginning = beginningOf(host);
    const QStringList names =
        QDir(folder()).entryList({QStringLiteral("*") + Suffix}, QDir::Files, QDir::Time); // the newest first
    for (const QString &name : names)
        if (name.startsWith(beginning))
            return QUrl::fromPercentEncoding(name.mid(beginning.size()).chopped(Suffix.size()).toLatin1())
                .toStdString();
    return {};
}

std::string TokenFile::read() const
{
    QFile file(m_path);
    return file.open(QIODevice::ReadOnly) ? file.readAll().toStdString() : std::string();
}

bool TokenFile::write(const std::string &token) const
{
    constexpr auto owner = QFileDevice::ReadOwner | QFileDevice::WriteOwner;
    if (!QDir().mkpath(folder()) || !QFile::setPermissions(folder(), owner | QFileDevice::ExeOwner))
        return false;
    QLockFile lock(folder() + QStringLiteral("/lock"));
    QSaveFile file(m_path);
    return lock.lock() && file.open(QIODevice::WriteOnly) && file.setPermissions(owner) &&
           file.write(token.data(), qint64(token.size())) == qint64(token.size()) && file.commit();
}

bool TokenFile::forget(const std::string &token) const
{
    QLockFile lock(folder() + QStringLiteral("/lock"));
    return !token.empty() && lock.lock() && read() == token && QFile::remove(m_path);
}

} // namespace Velmora::Cli
