/// @file Tokens.h
/// What stays between two commands: the client's own folder, and who is signed in.
#ifndef VELMORA_CLI_TOKENS_H
#define VELMORA_CLI_TOKENS_H

#include <QString>

#include <string>

namespace Velmora::Cli {

/// VELMORA_CONFIG_DIR, or a folder where the platform keeps configurations.
QString configFolder();

/// The refresh token of one user at one host. Only its owner can read the file. Several processes may use it at once.
class TokenFile {
public:
    TokenFile(const std::string &host, const std::string &user);
    /// Who signed in last at the host, of those who did not sign out; empty for nobody.
    static std::string lastUser(const std::string &host);

    QString path() const { return m_path; }
    /// Empty when the user is not signed in.
    std::string read() const;
    /// Replaces the file in one step. @return false when it cannot be written
    bool write(const std::string &token) const;
    /// Removes the file, unless it holds a newer token by now. @return false when it does, or there is none
    bool forget(const std::string &token) const;

private:
    QString m_path;
};

} // namespace Velmora::Cli

#endif
