// Starts a job from a job file: gets an id, sends the inputs from the folder of the file, submits.
#ifndef DESKTOP_NEWJOB_H
#define DESKTOP_NEWJOB_H

#include "TransfersPanel.h"

#include <QStringList>

/// Owned by its row among the transfers. "Try Again" in that row continues where it stopped.
class NewJob : public QObject {
    Q_OBJECT

public:
    NewJob(Velmora::CloudAPI &api, TransfersPanel &transfers, const QString &jobFile, const std::string &accountId);

signals:
    void submitted(const Velmora::JobDetails &job);

private:
    void read();
    QString problems() const;
    void advance();
    void sendInputs();
    void onSent(const QString &path, bool sent);
    void submit();

    Velmora::CloudAPI &m_api;
    TransfersPanel &m_transfers;
    QString m_jobFile;
    TaskRow *m_row;
    Velmora::JobSubmit m_job;
    QStringList m_unsent;
    int m_sending = 0;
};

#endif
