#include "model/Json.h"

#include <QDateTime>
#include <QLocale>

#include <cmath>

namespace Velmora {

namespace {

constexpr int maximumCores = 128;
constexpr int ramLimit = 1800 * 1024; // MB

struct Message {
    JobSubmitError code;
    const char *text;
};

constexpr Message messages[] = {
    {JobSubmitError::TooManyCores,
     "Too many cores requested for each simulation in the Job. Currently a <b>MAXIMUM</b> of 128"},
    {JobSubmitError::TooFewCores, "Not enough cores requested, 0 or less than requested"},
    {JobSubmitError::BadJobName,
     "The jobName field is empty or contains invalid characters. *warning* <b>NO</b> diacritic characters"},
    {JobSubmitError::MissingJobID, "jobID field was empty. A job ID must be requested before submission"},
    {JobSubmitError::NoSimulations, "Not enough simulations requested. There is a minimum of 1 simulation per job"},
    {JobSubmitError::NoMainFile,
     "No main input file provided with the JobSubmit object, job needs a trninp, revinp or bldinp file"},
    {JobSubmitError::BadCoreHourEstimate,
     "Gave a core hour cost estimate of 0 or less than. Must have a positive core hour estimate."},
    {JobSubmitError::RamTooLow, "Gave a RAM estimate of 0 or less than. Must have a positive RAM count estimate"},
    {JobSubmitError::RamTooHigh, "Gave a RAM estimate that was too high. Currently a <b>MAXIMUM</b> of 1800GB"},
    {JobSubmitError::NoApplication, "There was no Application Name/ID given in the job submission object"},
};

constexpr const char *operationNames[] = {"mpi", "simulation", "review", "build"};

/// Undefined, which a body leaves out, for an operation that has none.
QJsonValue operationName(JobOperation operation)
{
    const int index = static_cast<int>(operation);
    return index >= 0 && index < 4 ? QLatin1String(operationNames[index]) : QJsonValue(QJsonValue::Undefined);
}

} // namespace

JobSubmit::JobSubmit(const std::string &json)
{
    const QJsonObject object = QJsonDocument::fromJson(QByteArray::fromStdString(json)).object();
    *this = readRecord<JobSubmit>(object, Form::Input);
    if (operation == JobOperation::Mpi)
        coresRequired = object.value(QLatin1String(Schema<JobSubmit>::partsKey)).toInt();
    coreHourEstimate *= static_cast<double>(simulations.size()); // applications state it per simulation
}

bool JobSubmit::validate(std::list<JobSubmitError> *errors) const
{
    // An estimate that is no finite number has no JSON form either.
    const bool estimateUsable = coreHourEstimate > 0.0 && std::isfinite(coreHourEstimate);
    const struct {
        bool failed;
        JobSubmitError code;
    } checks[] = {
        {simulations.empty(), JobSubmitError::NoSimulations},
        {toQt(mainFile).isEmpty(), JobSubmitError::NoMainFile},
        {!estimateUsable, JobSubmitError::BadCoreHourEstimate},
        {ramEstimate < 1, JobSubmitError::RamTooLow},
        {ramEstimate >= ramLimit, JobSubmitError::RamTooHigh},
        {toQt(jobName).isEmpty(), JobSubmitError::BadJobName},
        {toQt(jobID).isEmpty(), JobSubmitError::MissingJobID},
        {coresRequired < 1, JobSubmitError::TooFewCores},
        {coresRequired > maximumCores, JobSubmitError::TooManyCores},
        {toQt(originApplication).isEmpty(), JobSubmitError::NoApplication},
    };
    bool valid = true;
    for (const auto &check : checks) {
        valid = valid && !check.failed;
        if (check.failed && errors)
            errors->push_back(check.code);
    }
    return valid;
}

std::string JobSubmit::errorMessage(JobSubmitError code)
{
    for (const Message &message : messages) {
        if (message.code == code)
            return message.text;
    }
    return "No Errors detected";
}

std::string JobSubmit::toSubmissionJson() const
{
    if (!validate())
        return {};
    QJsonObject body = writeRecord(*this, Form::Reply);
    const auto state = [&body](auto member, const QJsonValue &value) {
        body.insert(keyOf(member, Form::Reply), value);
    };
    const QString stamp = QLocale::c().toString(QDateTime::currentDateTime(), QStringLiteral("hhmmss-ddMMyy"));
    QJsonArray sweep;
    for (const std::string &parameters : simulations)
        sweep.append(QJsonObject{{keyOf(&SimulationDetails::consoleParameters, Form::Reply), toQt(parameters)}});
    state(&JobSubmit::jobName, toQt(jobName) + QLatin1Char('-') + stamp);
    state(&JobSubmit::operation, operationName(operation));
    state(&JobSubmit::simulations, sweep);
    state(&JobSubmit::jobPrecision, jobPrecision != 0 ? QLatin1String("double") : QLatin1String("single"));
    state(&JobSubmit::coreHourEstimate, coreHourEstimate / sweep.size());
    body[QLatin1String(Schema<JobSubmit>::partsKey)] = operation == JobOperation::Mpi ? coresRequired : 1;
    body[keyOf(&JobDetails::jobType, Form::Reply)] = sweep.size() < 2
                                                         ? QLatin1String("Cloud Configuration - Single Simulation")
                                                         : QLatin1String("Cloud Configuration - Simulation Sweep");
    return toText(body).toStdString();
}

} // namespace Velmora
