#include "commands/Commands.h"
#include "common/Output.h"
#include "session/Session.h"
#include "session/Tokens.h"

#include <iostream>
#include <string>

namespace Velmora::Cli {

namespace {

std::string lineOfInput()
{
    std::string line;
    std::getline(std::cin, line);
    if (!line.empty() && line.back() == '\r')
        line.pop_back();
    if (line.empty())
        throw Failure(ExitCode::WrongUse, QStringLiteral("Wrong Use"),
                      QStringLiteral("standard input holds no password"));
    return line;
}

} // namespace

void login(const Options &given)
{
    Options options = given;
    if (options.passwordFromInput)
        options.password = lineOfInput();
    Session session(options);
    session.signInWithPassword();
    const bool isKept = !session.refreshToken().empty();
    const TokenFile file(session.host(), session.user());
    if (isKept && !file.write(session.refreshToken()))
        throw Failure(ExitCode::WrongUse, QStringLiteral("Error"),
                      QStringLiteral("signed in, but %1 cannot be written").arg(file.path()));
    print(options,
          {{QStringLiteral("user"), QString::fromStdString(session.user())},
           {QStringLiteral("host"), QString::fromStdString(session.host())},
           {QStringLiteral("mfa"), session.usedMfa()},
           {QStringLiteral("kept"), isKept}},
          [&] {
              return QStringLiteral("%1 %2 signed in to %3%4\n")
                  .arg(shown(session.user()), isKept ? QStringLiteral("is") : QStringLiteral("can be"),
                       shown(session.host()), session.usedMfa() ? QStringLiteral(", with a one-time code") : QString());
          });
}

void logout(const Options &options)
{
    const std::string host = hostOf(options);
    const std::string user = options.user.empty() ? TokenFile::lastUser(host) : options.user;
    const TokenFile file(host, user);
    const bool wasIn = file.forget(file.read());
    print(options,
          {{QStringLiteral("user"), QString::fromStdString(user)},
           {QStringLiteral("host"), QString::fromStdString(host)},
           {QStringLiteral("signedOut"), wasIn}},
          [&] {
              return wasIn ? QStringLiteral("%1 is signed out of %2\n").arg(shown(user), shown(host))
                           : QStringLiteral("nobody is signed in to %1\n").arg(shown(host));
          });
}

} // namespace Velmora::Cli
