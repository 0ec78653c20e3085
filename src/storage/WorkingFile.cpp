#include "storage/WorkingFile.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

namespace Velmora {

namespace {

constexpr int longestName = 255;   // bytes; on Windows UTF-16 units
constexpr int mostNumbers = 10000; // of files that can be neither used nor removed

int lengthOf(const QString &name)
{
#ifdef _WIN32
    return name.size();
#else
    return QFile::encodeName(name).size();
#endif
}

} // namespace

WorkingFile::WorkingFile(const QString &folder, const QString &name)
    : m_folder(folder)
    , m_name(name)
{
}

QString WorkingFile::pathOf(const QString &folder, const QString &name, int number)
{
    const QString prefix = QStringLiteral("UNCONFIRMED_DOWNLOAD.");
    const QString end =
        (number > 1 ? QLatin1Char('.') + QString::number(number) : QString()) + QLatin1String(".VELMORA");
    QString middle = name;
    while (lengthOf(prefix + middle + end) > longestName && !middle.isEmpty())
        middle.chop(middle.size() > 1 && middle.at(middle.size() - 1).isLowSurrogate() ? 2 : 1);
    return folder + QLatin1Char('/') + prefix + middle + end;
}

bool WorkingFile::open()
{
    if (m_file.isOpen())
        return true;
    // Where pieces make one folder side by side, all but one may fail on Windows at first.
    if (!QDir().mkpath(m_folder) && !QDir().mkpath(m_folder)) {
        m_problem = QStringLiteral("The folder %1 could not be created.").arg(QDir::toNativeSeparators(m_folder));
        return false;
    }
    removeAbandoned(m_folder, m_name);
    for (int number = 1; number < mostNumbers;) {
        const QString path = pathOf(m_folder, m_name, number);
        switch (m_file.create(path)) {
        case LockedFile::Created::Yes:
            return true;
        case LockedFile::Created::Failed:
            m_problem = m_file.problem();
            return false;
        case LockedFile::Created::Exists:
            if (!LockedFile::removeAbandoned(path))
                ++number;
        }
    }
    m_problem = m_file.problem();
    return false;
}

void WorkingFile::removeAbandoned(const QString &folder, const QString &name)
{
    for (int number = 1; number < mostNumbers; ++number) {
        const QString path = pathOf(folder, name, number);
        if (!QFileInfo::exists(path))
            return;
        LockedFile::removeAbandoned(path);
    }
}

bool WorkingFile::append(WorkingFile &other, const std::atomic<bool> &stop)
{
    if (!open() || !m_file.append(other.m_file, stop))
        return false;
    other.remove();
    return true;
}

QString WorkingFile::problem() const { return m_problem.isEmpty() ? m_file.problem() : m_problem; }

} // namespace Velmora
