#include "arguments/Config.h"

#include "commands/Commands.h"
#include "common/Output.h"
#include "common/Terminal.h"
#include "session/Tokens.h"

#include <CLI/CLI.hpp>

#include <QDir>
#include <QFileInfo>
#include <QJsonArray>
#include <QSaveFile>

#include <algorithm>
#include <sstream>

namespace Velmora::Cli {

namespace {

Failure wrongUse(const QString &message) { return Failure(ExitCode::WrongUse, QStringLiteral("Wrong Use"), message); }

/// What the file's grammar can hold between quotes.
bool canBeWritten(const std::string &value) { return value.find_first_of("\"#\r\n") == std::string::npos; }

std::string joined(const std::vector<std::string> &parts)
{
    std::string text;
    for (const std::string &part : parts)
        text += (text.empty() ? "" : " ") + part;
    return text;
}

} // namespace

const std::vector<Config::Key> &Config::keys()
{
    static const std::vector<Key> all{{"account", ""},   {"bwlimit", ""},
                                      {"ca", ""},        {"host", "VELMORA_API_URL"},
                                      {"hpc", ""},       {"portal", "VELMORA_API_URL"},
                                      {"timeout", ""},   {"to", ""},
                                      {"transfers", ""}, {"user", "VELMORA_USER"}};
    return all;
}

Config::Config()
    : m_path(configFolder() + QStringLiteral("/config.toml"))
{
    QFile file(m_path);
    if (!file.exists())
        return;
    if (!file.open(QIODevice::ReadOnly))
        throw wrongUse(QStringLiteral("%1: %2").arg(m_path, file.errorString()));
    std::istringstream text(file.readAll().toStdString());
    for (const CLI::ConfigItem &item : CLI::ConfigTOML().from_config(text))
        if (item.name != "++" && item.name != "--") // the beginning and the end of a section
            m_sections[item.parents.empty() ? "" : item.parents.front()][item.name] = joined(item.inputs);
}

std::vector<std::string> Config::profiles() const
{
    std::vector<std::string> names;
    for (const auto &section : m_sections)
        if (!section.first.empty())
            names.push_back(section.first);
    return names;
}

std::map<std::string, std::string> Config::values(const std::string &profile) const
{
    const auto of = [this](const std::string &name) {
        const auto found = m_sections.find(name);
        return found == m_sections.end() ? std::map<std::string, std::string>() : found->second;
    };
    auto result = of(profile);
    result.merge(of(""));
    return result;
}

void Config::set(const std::string &profile, const std::string &key, const std::string &value)
{
    const bool isKey =
        std::any_of(keys().begin(), keys().end(), [&](const Key &candidate) { return candidate.name == key; });
    if (!isKey) {
        std::string names;
        for (const Key &candidate : keys())
            names += std::string(" ") + candidate.name;
        throw wrongUse(QStringLiteral("%1 is no key; there are:%2")
                           .arg(QString::fromStdString(key), QString::fromStdString(names)));
    }
    if (!canBeWritten(value) || !canBeWritten(profile) || profile.find_first_of(".[] ") != std::string::npos)
        throw wrongUse(QStringLiteral(
            "quotes, # and line ends cannot be kept, nor dots, brackets and blanks in a profile's name"));
    if (value.empty())
        m_sections[profile].erase(key);
    else
        m_sections[profile][key] = value;
    std::string text;
    for (const auto &[name, entries] : m_sections) {
        if (!name.empty() && !entries.empty())
            text += "\n[" + name + "]\n";
        for (const auto &[entry, content] : entries)
            text += entry + " = \"" + content + "\"\n";
    }
    QSaveFile file(m_path);
    if (!QDir().mkpath(configFolder()) || !file.open(QIODevice::WriteOnly) ||
        file.write(text.data(), qint64(text.size())) < 0 || !file.commit())
        throw wrongUse(QStringLiteral("%1: %2").arg(m_path, file.errorString()));
}

void Config::apply(CLI::App &app, CLI::App &command, const std::string &profile) const
{
    if (!profile.empty() && !hasProfile(profile))
        throw wrongUse(QStringLiteral("there is no profile %1 in %2").arg(QString::fromStdString(profile), m_path));
    const auto isGiven = [&](const std::string &name) {
        const CLI::Option *option = app.get_option_no_throw("--" + name);
        const CLI::Option *own = command.get_option_no_throw("--" + name);
        return (option && option->count() > 0) || (own && own->count() > 0);
    };
    const auto all = values(profile);
    for (const Key &key : keys()) {
        const std::string name = key.name;
        const auto value = all.find(name);
        CLI::Option *option = command.get_option_no_throw("--" + name);
        const bool isOther = (name == "host" || name == "portal") && (isGiven("host") || isGiven("portal"));
        // There the option chooses what the command does, not how.
        const bool isChoice =
            (name == "account" && command.get_name() == "tags") || (name == "to" && command.get_name() == "watch");
        if (value == all.end() || !option || isGiven(name) || isOther || isChoice ||
            !Terminal::environment(key.variable).empty())
            continue;
        option->add_result(value->second);
        option->run_callback();
    }
}

void config(const Options &options)
{
    Config file;
    if (!options.change.empty()) {
        if (options.change.size() < 2 || options.change.size() > 3 || options.change.front() != "set")
            throw wrongUse(QStringLiteral(
                "to change a value: velmora config set KEY VALUE\nto remove it: velmora config set KEY"));
        std::string value = options.change.size() == 3 ? options.change[2] : std::string();
        if (options.change[1] == "ca" && !value.empty()) // the file holds in every folder
            value = QFileInfo(QString::fromStdString(value)).absoluteFilePath().toStdString();
        file.set(options.profile, options.change[1], value);
    }
    QJsonObject values;
    Table table({{QStringLiteral("KEY"), Align::Left}, {QStringLiteral("VALUE"), Align::Left, true}});
    for (const auto &[key, value] : file.values(options.profile)) {
        values.insert(QString::fromStdString(key), QString::fromStdString(value));
        table.add({shown(key), shown(value)});
    }
    QJsonArray profiles;
    QStringList names;
    for (const std::string &name : file.profiles()) {
        profiles.append(QString::fromStdString(name));
        names << shown(name);
    }
    print(options,
          {{QStringLiteral("file"), file.path()},
           {QStringLiteral("profile"), QString::fromStdString(options.profile)},
           {QStringLiteral("profiles"), profiles},
           {QStringLiteral("values"), values}},
          [&] {
              return fitted(Facts{{"File", file.path()},
                                  {"Profile", options.profile.empty() ? QStringLiteral("-") : shown(options.profile)},
                                  {"Profiles", names.isEmpty() ? QStringLiteral("-") : names.join(QLatin1Char(' '))}}) +
                     QLatin1Char('\n') + fitted(table);
          });
}

} // namespace Velmora::Cli
