// Shows the jobs: status dot, live progress bar, and a button in the row of each job that can be stopped.
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
    /// @param job the first column of its row
    void stopWanted(const QModelIndex &job);
    void selectedChanged();

private:
    void updateButton(const QModelIndex &place);
};

#endif
