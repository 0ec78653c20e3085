// Shows the jobs: status dot, live progress bar, and a button in each row that can be stopped.
#ifndef DESKTOP_JOBTABLE_H
#define DESKTOP_JOBTABLE_H

#include "Jobs.h"

#include <QTableView>

class JobTable : public QTableView {
    Q_OBJECT

public:
    explicit JobTable(Jobs &jobs);
    /// Of the selected job's first column; empty without a selection.
    QString selected(int role) const;

signals:
    /// @param again it was wanted before, and failed
    void stopWanted(const QString &jobId, bool again);
    void selectedChanged();

private:
    void updateButton(const QModelIndex &place);
};

#endif
