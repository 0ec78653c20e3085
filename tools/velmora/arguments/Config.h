/// @file Config.h
/// The configuration file: values of options, for every command or for those of a profile.
#ifndef VELMORA_CLI_CONFIG_H
#define VELMORA_CLI_CONFIG_H

#include <QString>

#include <map>
#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace Velmora::Cli {

struct Options;

class Config {
public:
    /// A key is the name of an option.
    struct Key {
        const char *name;
        const char *variable; ///< of the environment; it wins over the file
    };
    static const std::vector<Key> &keys();

    /// Reads the file. Throws `Failure` when it cannot be read.
    Config();

    QString path() const { return m_path; }
    std::vector<std::string> profiles() const;
    bool hasProfile(const std::string &name) const { return m_sections.count(name) > 0; }
    /// A profile's values, completed by those of every command.
    std::map<std::string, std::string> values(const std::string &profile) const;
    /// Sets a value, or removes it when it is empty, and writes the file. Throws `Failure`.
    void set(const std::string &profile, const std::string &key, const std::string &value);

    /// Gives the chosen command's options the values that neither the arguments nor the environment name.
    void apply(CLI::App &app, CLI::App &command, const std::string &profile) const;

private:
    QString m_path;
    std::map<std::string, std::map<std::string, std::string>> m_sections; ///< "" is for every command
};

} // namespace Velmora::Cli

#endif
