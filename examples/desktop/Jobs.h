// The user's jobs as rows, newest first; kept up to date while they run.
#ifndef DESKTOP_JOBS_H
#define DESKTOP_JOBS_H

#include <velmora/CloudAPI.h>

#include <QSet>
#include <QStandardItemModel>

class Jobs : public QStandardItemModel {
    Q_OBJECT

public:
    enum Column { Name, Status, Progress, Submitted, Action, ColumnCount };
    /// The comment after each role names the columns that have it.
    enum Role {
        IdRole = Qt::UserRole + 1, ///< Name
        StatusRole,                ///< Status: bare and in lower case
        ErrorRole,                 ///< Status: the error of this row
        SimulationsRole,           ///< Progress: of each simulation
        PercentRole,               ///< Progress: of the job, -1 for none
        DateRole,                  ///< Submitted
        ActionRole,                ///< Action: the label of the row's button, empty for none; disabled with the item
    };

    Jobs(Velmora::CloudAPI &api, QObject *parent);
    void load(const Velmora::CloudAPI::Done &onLoaded);
    void update(const Velmora::JobDetails &job);
    /// Stops the job. A failure is shown in the job's own row.
    void stop(const QString &id);

private:
    int rowOf(const QString &id) const;
    int insert(const Velmora::JobDetails &job, long long submitted);
    void setStatus(int row, const QString &status);
    void setError(int row, const QString &error, const QString &action, bool actionEnabled = true);
    void noteProgress(const QString &id, const QString &simulation, int percent);
    void look(const QString &id);
    void follow(const QString &id);

    Velmora::CloudAPI &m_api;
    QSet<QString> m_followed;
};

#endif
