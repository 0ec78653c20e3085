#include "Jobs.h"

#include "Text.h"

#include <QDateTime>
#include <QLocale>

#include <algorithm>

using Velmora::ApiError;

namespace {

bool isActive(const QString &status)
{
    static const QSet<QString> ends = {"finished", "failed", "stopped", "archived", "aborted", "killed", "error"};
    return !status.isEmpty() && !ends.contains(status);
}

long long submittedAt(const Velmora::JobDetails &job)
{
    const auto first = std::min_element(job.jobStatus.begin(), job.jobStatus.end(),
                                        [](const auto &a, const auto &b) { return a.jobStatusDate < b.jobStatusDate; });
    return first == job.jobStatus.end() ? 0 : first->jobStatusDate;
}

} // namespace

Jobs::Jobs(Velmora::CloudAPI &api, QObject *parent)
    : QStandardItemModel(0, ColumnCount, parent)
    , m_api(api)
{
    setHorizontalHeaderLabels({tr("Job"), tr("Status"), tr("Progress"), tr("Submitted"), QString()});
}

void Jobs::load(const Velmora::CloudAPI::Done &onLoaded)
{
    m_api.getAllJobDetails([this, onLoaded](const ApiError &error, const std::list<Velmora::JobDetails> &jobs) {
        QSet<QString> listed;
        for (const auto &job : jobs) {
            listed.insert(toQt(job.jobId));
            update(job);
        }
        for (int row = rowCount() - 1; row >= 0 && succeeded(error); --row)
            if (const QString id = item(row, Name)->data(IdRole).toString(); !listed.contains(id)) {
                m_api.stopFollowing(id.toStdString());
                m_followed.remove(id);
                removeRow(row);
            }
        onLoaded(error);
    });
}

void Jobs::update(const Velmora::JobDetails &job)
{
    int row = rowOf(toQt(job.jobId));
    if (row < 0)
        row = insert(job, submittedAt(job));
    for (const auto &simulation : job.simulations)
        noteProgress(toQt(job.jobId), toQt(simulation.simulationId), 0);
    setStatus(row, toQt(latestStatus(job)).toLower());
    follow(toQt(job.jobId));
}

int Jobs::insert(const Velmora::JobDetails &job, long long submitted)
{
    int row = 0;
    while (row < rowCount() && item(row, Submitted)->data(DateRole).toLongLong() > submitted)
        ++row;
    QList<QStandardItem *> items;
    for (int column = 0; column < ColumnCount; ++column) {
        items << new QStandardItem;
        items.last()->setEditable(false);
    }
    items[Name]->setText(toQt(job.jobName.empty() ? job.jobId : job.jobName));
    items[Name]->setToolTip(toQt(job.jobId));
    items[Name]->setData(toQt(job.jobId), IdRole);
    if (submitted > 0)
        items[Submitted]->setText(QLocale().toString(QDateTime::fromMSecsSinceEpoch(submitted), QLocale::ShortFormat));
    items[Submitted]->setData(submitted, DateRole);
    insertRow(row, items);
    return row;
}

int Jobs::rowOf(const QString &id) const
{
    const auto found = match(index(0, Name), IdRole, id, 1, Qt::MatchExactly | Qt::MatchCaseSensitive);
    return found.isEmpty() ? -1 : found.first().row();
}

void Jobs::setStatus(int row, const QString &status)
{
    item(row, Status)->setData(status, StatusRole);
    item(row, Status)->setText(status.left(1).toUpper() + status.mid(1));
    const QVariantMap simulations = item(row, Progress)->data(SimulationsRole).toMap();
    int percent = 0;
    for (const QVariant &progress : simulations)
        percent += progress.toInt();
    percent /= std::max(1, static_cast<int>(simulations.size()));
    item(row, Progress)
        ->setData(status == QLatin1String("finished") ? 100
                  : isActive(status)                  ? percent
                                                      : -1,
                  PercentRole);
    QStandardItem *action = item(row, Action);
    if (!isActive(status))
        setError(row, QString(), QString());
    else if (action->data(ActionRole).toString().isEmpty())
        action->setData(tr("Stop…"), ActionRole);
}

void Jobs::setError(int row, const QString &error, const QString &action, bool actionEnabled)
{
    item(row, Status)->setData(error, ErrorRole);
    item(row, Action)->setEnabled(actionEnabled);
    item(row, Action)->setData(action, ActionRole);
}

void Jobs::noteProgress(const QString &id, const QString &simulation, int percent)
{
    const int row = rowOf(id);
    if (row < 0)
        return;
    QVariantMap simulations = item(row, Progress)->data(SimulationsRole).toMap();
    simulations[simulation] = std::max(simulations.value(simulation).toInt(), std::clamp(percent, 0, 100));
    item(row, Progress)->setData(simulations, SimulationsRole);
    setStatus(row, item(row, Status)->data(StatusRole).toString());
}

void Jobs::stop(const QString &id)
{
    if (const int row = rowOf(id); row >= 0)
        setError(row, QString(), tr("Stopping…"), false);
    m_api.killJob(id.toStdString(), [this, id](const ApiError &error, const auto &) {
        const int row = rowOf(id);
        if (row >= 0 && !succeeded(error))
            setError(row, tr("Could not be stopped: %1").arg(explain(error, m_api)), tr("Try Again"));
        look(id);
    });
}

void Jobs::look(const QString &id)
{
    m_api.getJobDetails(id.toStdString(), [this](const ApiError &error, const Velmora::JobDetails &job) {
        if (succeeded(error))
            update(job);
    });
}

void Jobs::follow(const QString &id)
{
    const int row = rowOf(id);
    if (m_followed.contains(id) || !isActive(item(row, Status)->data(StatusRole).toString()))
        return;
    m_followed.insert(id);
    m_api.followJob(
        id.toStdString(),
        [this, id](const Velmora::JobProgress &progress) {
            for (const auto &simulation : progress.simulationProgressList)
                noteProgress(id, toQt(simulation.simulationId), simulation.progress);
            if (const int row = rowOf(id); row >= 0 && item(row, Status)->data(StatusRole) != QLatin1String("running"))
                look(id);
        },
        [this, id](const ApiError &error, const Velmora::JobDetails &job) {
            m_followed.remove(id);
            if (!job.jobId.empty())
                update(job);
            else if (const int row = rowOf(id); row >= 0)
                setError(row, tr("Cannot be followed any more: %1").arg(explain(error, m_api)), QString());
        });
}
