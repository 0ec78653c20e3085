#include "common/Options.h"

#include "common/Json.h"
#include "common/Terminal.h"

#include <QRegularExpression>

#include <utility>

namespace Velmora::Cli {

namespace {

void fill(std::string &value, const char *variable)
{
    if (value.empty())
        value = Terminal::environment(variable);
}

} // namespace

void fillFromEnvironment(Options &options)
{
    fill(options.user, "VELMORA_USER");
    fill(options.password, "VELMORA_PASSWORD");
    fill(options.mfaCode, "VELMORA_MFA");
    fill(options.profile, "VELMORA_PROFILE");
}

std::string hostOf(const Options &options)
{
    if (!options.host.empty())
        return options.host;
    const std::string override = Terminal::environment("VELMORA_API_URL");
    if (!override.empty())
        return override;
    if (options.portal == "test")
        return VELMORA_TEST_HOST;
    if (options.portal == "development")
        return VELMORA_DEV_HOST;
    return VELMORA_PROD_HOST;
}

QString quoted(const std::string &argument)
{
    QString text = QString::fromStdString(argument);
    static const QRegularExpression plain(QStringLiteral("^[A-Za-z0-9_@%+=:,./\\[\\]-]+$"));
    if (plain.match(text).hasMatch())
        return text;
    return QLatin1Char('\'') + text.replace(QLatin1Char('\''), QLatin1String("'\\''")) + QLatin1Char('\'');
}

QString sameOptions(const Options &options)
{
    QString text;
    const auto add = [&text](const char *name, const std::string &value) {
        if (!value.empty())
            text += QStringLiteral(" %1 %2").arg(QLatin1String(name), quoted(value));
    };
    if (options.host.empty() && options.portal != Options().portal)
        add("--portal", options.portal);
    add("--host", options.host);
    add("--ca", options.caFile);
    add("--user", options.user);
    return text;
}

Failure::Failure(ExitCode code, const QString &title, const QString &message)
    : m_code(code)
    , m_message(message)
{
    m_error.errorTitle = title.toStdString();
    m_error.errorMessage = message.toStdString();
}

Failure::Failure(ExitCode code, ApiError error, const QString &message)
    : m_code(code)
    , m_error(std::move(error))
    , m_message(message)
{
}

Failure &Failure::with(const QString &key, const QJsonValue &value)
{
    m_more.insert(key, value);
    return *this;
}

Failure &Failure::with(const QJsonObject &members)
{
    for (auto member = members.begin(); member != members.end(); ++member)
        m_more.insert(member.key(), member.value());
    return *this;
}

QJsonObject Failure::toJson() const
{
    QJsonObject error = Cli::toJson(m_error);
    error.insert(QStringLiteral("exitCode"), int(m_code));
    QJsonObject document = m_more;
    document.insert(QStringLiteral("error"), error);
    return document;
}

} // namespace Velmora::Cli
