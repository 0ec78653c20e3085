/// @file Selector.h
/// How an argument of the command line selects cloud files.
#ifndef VELMORA_CLI_SELECTOR_H
#define VELMORA_CLI_SELECTOR_H

#include <velmora/Records.h>

#include <QRegularExpression>
#include <QString>

#include <list>
#include <set>
#include <string>

namespace Velmora::Cli {

inline bool isHidden(const CloudFile &file) { return file.fileName.find("/rtg/") != std::string::npos; }

class Selector {
public:
    /// Patterns are for whole names, or, where they reach into folders, for the last part of a name too.
    enum class Reach { Folders, WholeNames };

    Selector(const std::string &argument, Reach reach)
        : m_argument(argument)
        , m_pattern(QRegularExpression::wildcardToRegularExpression(QString::fromStdString(argument)))
        , m_reach(reach)
    {
    }
    /// The selected names: the one file of that name, or all in a folder of that name and all that match the pattern.
    /// Hidden files only when they are named, or all are wanted.
    std::set<std::string> in(const std::list<CloudFile> &listing, bool all) const
    {
        std::set<std::string> names;
        for (const CloudFile &file : listing) {
            if (file.fileName == m_argument && !file.directory)
                return {file.fileName};
            if (!file.directory && (all || !isHidden(file)) && matches(file))
                names.insert(file.fileName);
        }
        return names;
    }
    bool isIn(const CloudFile &file) const
    {
        return file.fileName.compare(0, m_argument.size() + 1, m_argument + '/') == 0;
    }

private:
    bool matches(const CloudFile &file) const
    {
        const QString name = QString::fromStdString(file.fileName);
        return m_pattern.match(name).hasMatch() ||
               (m_reach == Reach::Folders &&
                (isIn(file) || m_pattern.match(name.mid(name.lastIndexOf(QLatin1Char('/')) + 1)).hasMatch()));
    }

    std::string m_argument;
    QRegularExpression m_pattern;
    Reach m_reach;
};

} // namespace Velmora::Cli

#endif
