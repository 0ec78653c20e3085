// Moves files to and from jobs, and shows a row for each; also the rows of jobs that are being started.
#ifndef DESKTOP_TRANSFERSPANEL_H
#define DESKTOP_TRANSFERSPANEL_H

#include "TaskRow.h"

#include <velmora/CloudAPI.h>

#include <QWidget>

class QLabel;
class QVBoxLayout;

class TransfersPanel : public QWidget {
    Q_OBJECT

public:
    /// Arguments: the file, whether it was sent.
    using Sent = std::function<void(const QString &, bool)>;

    TransfersPanel(Velmora::CloudAPI &api, QWidget *parent = nullptr);
    void upload(const std::string &jobId, const QStringList &paths, const Sent &onSent = {});
    /// Fetches the files that the job's simulations have written.
    void downloadResults(const std::string &jobId, const QString &jobName, const QString &folder);
    TaskRow *addRow(const QString &name);
    int activeCount() const;
    void cancelAll();

private:
    QList<TaskRow *> rows() const;
    void download(const Velmora::CloudFile &file, const QString &folder);
    void clearEnded();

    Velmora::CloudAPI &m_api;
    QWidget *m_rows;
    QVBoxLayout *m_layout;
    QLabel *m_empty;
};

#endif
