#include "JobFile.h"

#include "Output.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>

#include <algorithm>

namespace Velmora::Cli {

namespace {

enum class Kind { Text, Texts, Whole, Number };

struct Key {
    const char *name;
    Kind kind;
};

constexpr Key knownKeys[] = {
    {"jobID", Kind::Text},
    {"accountID", Kind::Text},
    {"jobName", Kind::Text},
    {"mainFile", Kind::Text},
    {"solverTag", Kind::Text},
    {"dependentFilesList", Kind::Texts},
    {"dependentFilesAliasList", Kind::Texts},
    {"operation", Kind::Whole},
    {"simulations", Kind::Texts},
    {"coresRequired", Kind::Whole},
    {"coreHourEstimate", Kind::Number},
    {"jobPrecision", Kind::Whole},
    {"ramEstimate", Kind::Whole},
    {"numberOfParts", Kind::Whole},
    {"originApplication", Kind::Text},
};

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

QStringList unheeded(const QJsonObject &object)
{
    QStringList warnings;
    for (auto entry = object.begin(); entry != object.end(); ++entry) {
        const auto *key = std::find_if(std::begin(knownKeys), std::end(knownKeys),
                                       [&](const Key &known) { return entry.key() == QLatin1String(known.name); });
        const QString name = shown(entry.key().toStdString());
        if (key == std::end(knownKeys))
            warnings << QStringLiteral("unknown key \"%1\" is ignored").arg(name);
        else if (!fits(entry.value(), key->kind))
            warnings << QStringLiteral("\"%1\" is not %2 and reads as empty").arg(name, expectation(key->kind));
    }
    const int operation = object.value(QLatin1String("operation")).toInt();
    if (operation < 0 || operation > 3)
        warnings << QStringLiteral("\"operation\" is not 0 (MPI), 1 (simulation), 2 (review) or 3 (build)");
    const int files = object.value(QLatin1String("dependentFilesList")).toArray().size();
    const int aliases = object.value(QLatin1String("dependentFilesAliasList")).toArray().size();
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

    JobFile result;
    result.job = JobSubmit(bytes.toStdString());
    const QDir folder = QFileInfo(path).dir();
    result.inputs << folder.filePath(QString::fromStdString(result.job.mainFile));
    for (const std::string &name : result.job.dependentFilesList)
        result.inputs << folder.filePath(QString::fromStdString(name));
    result.warnings = unheeded(document.object());
    if (result.job.originApplication.empty())
        result.job.originApplication = "velmora";
    if (!options.accountId.empty())
        result.job.accountID = options.accountId;
    return result;
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
        QString message = withoutMarkup(JobSubmit::errorMessage(error));
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
