#include "run/JobFile.h"

#include "common/Json.h"
#include "common/Output.h"
#include "run/Sweep.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>

#include <algorithm>
#include <map>
#include <type_traits>
#include <utility>

namespace Velmora::Cli {

namespace {

enum class Kind { Text, Texts, Whole, Number };

template <class Value> constexpr Kind kindOf()
{
    if constexpr (std::is_same_v<Value, std::string>)
        return Kind::Text;
    else if constexpr (std::is_same_v<Value, std::list<std::string>>)
        return Kind::Texts;
    else if constexpr (std::is_floating_point_v<Value>)
        return Kind::Number;
    else
        return Kind::Whole;
}

std::map<QString, Kind> knownKeys()
{
    std::map<QString, Kind> keys{{QLatin1String(Schema<JobSubmit>::partsKey), Kind::Whole}};
    forEachField<JobSubmit>([&keys](const auto &field) {
        using Value = std::decay_t<decltype(std::declval<JobSubmit>().*field.member)>;
        keys.emplace(QLatin1String(field.textKey), kindOf<Value>());
    });
    return keys;
}

bool fits(const QJsonValue &value, Kind kind)
{
    switch (kind) {
    case Kind::Text:
        return value.isString();
    case Kind::Texts: {
        const QJsonArray array = value.toArray();
        return value.isArray() &&
               std::all_of(array.begin(), array.end(), [](const QJsonValue &element) { return element.isString(); });
    }
    case Kind::Whole:
        return value.isDouble() && value.toInt(0) == value.toInt(1);
    case Kind::Number:
        return value.isDouble();
    }
    return false;
}

QString expectation(Kind kind)
{
    switch (kind) {
    case Kind::Text:
        return QStringLiteral("a text");
    case Kind::Texts:
        return QStringLiteral("a list of texts");
    case Kind::Whole:
        return QStringLiteral("a whole number");
    case Kind::Number:
        return QStringLiteral("a number");
    }
    return QString();
}

QStringList warningsOf(const QJsonObject &object, const JobSubmit &job)
{
    const std::map<QString, Kind> known = knownKeys();
    QStringList warnings;
    for (auto entry = object.begin(); entry != object.end(); ++entry) {
        const auto key = known.find(entry.key());
        const QString name = shown(entry.key().toStdString());
        if (key == known.end())
            warnings << QStringLiteral("unknown key \"%1\" is ignored").arg(name);
        else if (!fits(entry.value(), key->second))
            warnings << QStringLiteral("\"%1\" is not %2 and reads as empty").arg(name, expectation(key->second));
    }
    if (job.operation < JobOperation::Mpi || job.operation > JobOperation::Build)
        warnings << QStringLiteral("\"operation\" is not 0 (MPI), 1 (simulation), 2 (review) or 3 (build)");
    const auto files = job.dependentFilesList.size();
    const auto aliases = job.dependentFilesAliasList.size();
    if (files != aliases)
        warnings << QStringLiteral("%1 dependent files have %2 aliases").arg(files).arg(aliases);
    return warnings;
}

} // namespace

JobFile readJobFile(const Options &options)
{
    const QString path = QString::fromStdString(options.jobFile);
    const auto refuse = [&](const QString &why) {
        return Failure(ExitCode::WrongUse, QStringLiteral("Bad Job File"), QStringLiteral("%1: %2").arg(path, why));
    };
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        throw refuse(file.errorString());
    const QByteArray bytes = file.readAll();
    if (file.error() != QFileDevice::NoError)
        throw refuse(file.errorString());
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(bytes, &error);
    if (error.error != QJsonParseError::NoError) {
        const int line = bytes.left(error.offset).count('\n') + 1;
        throw refuse(QStringLiteral("line %1: %2").arg(line).arg(error.errorString()));
    }
    if (!document.isObject())
        throw refuse(QStringLiteral("not a JSON object"));

    QJsonObject object = document.object();
    if (!options.each.empty()) {
        QJsonArray simulations;
        for (const QString &parameters : sweepOf(QString::fromStdString(options.each)))
            simulations.append(parameters);
        object.insert(QStringLiteral("simulations"), simulations);
    }
    JobFile result;
    result.job = JobSubmit(QJsonDocument(object).toJson(QJsonDocument::Compact).toStdString());
    const QDir folder = QFileInfo(path).dir();
    result.inputs << folder.filePath(QString::fromStdString(result.job.mainFile));
    for (const std::string &name : result.job.dependentFilesList)
        result.inputs << folder.filePath(QString::fromStdString(name));
    result.warnings = warningsOf(object, result.job);
    if (result.job.originApplication.empty())
        result.job.originApplication = "velmora";
    if (!options.accountId.empty())
        result.job.accountID = options.accountId;
    return result;
}

QJsonObject JobFile::definition() const
{
    QJsonObject object = toJson(job);
    for (const char *key : {"jobID", "accountID"})
        object.remove(QLatin1String(key));
    return object;
}

JobFile checkedJobFile(const Options &options)
{
    const JobFile file = readJobFile(options);
    for (const QString &warning : file.warnings)
        warn(options, warning);
    const auto errors = failedChecks(file.job);
    if (errors.empty())
        return file;
    const QStringList messages = checkMessages(file.job, errors);
    throw Failure(ExitCode::WrongUse, QStringLiteral("Bad Job Definition"),
                  QStringLiteral("%1 is not valid:\n  %2")
                      .arg(QString::fromStdString(options.jobFile), messages.join(QLatin1String("\n  "))))
        .with(QStringLiteral("valid"), false)
        .with(QStringLiteral("failedChecks"), checksJson(errors));
}

std::list<JobSubmitError> failedChecks(const JobSubmit &job)
{
    std::list<JobSubmitError> errors;
    job.validate(&errors);
    errors.remove(JobSubmitError::MissingJobID);
    return errors;
}

QStringList checkMessages(const JobSubmit &job, const std::list<JobSubmitError> &errors)
{
    QStringList messages;
    for (const JobSubmitError error : errors) {
        QString message = shown(plainText(JobSubmit::errorMessage(error)));
        if (error == JobSubmitError::TooFewCores && job.operation == JobOperation::Mpi)
            message += QStringLiteral(" (an MPI job states its cores as numberOfParts)");
        messages << message;
    }
    return messages;
}

QJsonArray checksJson(const std::list<JobSubmitError> &errors)
{
    QJsonArray array;
    for (const JobSubmitError error : errors)
        array.append(QJsonObject{{QStringLiteral("code"), int(error)},
                                 {QStringLiteral("message"), QString::fromStdString(JobSubmit::errorMessage(error))}});
    return array;
}

} // namespace Velmora::Cli
