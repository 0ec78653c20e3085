// The window: the actions, the jobs, the transfers. Owns the session.
#ifndef DESKTOP_MAINWINDOW_H
#define DESKTOP_MAINWINDOW_H

#include "JobTable.h"
#include "SignInDialog.h"
#include "TransfersPanel.h"

#include <QMainWindow>

class QComboBox;
class QStackedWidget;
class QToolBar;

class MainWindow : public QMainWindow {
    Q_OBJECT

public:
    MainWindow();
    void signIn();
    void startJob(const QString &jobFile);

protected:
    void closeEvent(QCloseEvent *event) override;

private:
    template <class Act> QAction *addAction(QStyle::StandardPixmap icon, const QString &text, Act act);
    void addActions();
    QWidget *jobArea();
    void updateActions();
    void load();
    void showJobs(const QString &otherwise);
    void showListError(const QString &why);
    void stop(const QModelIndex &job);

    // Destroyed before the widgets, which the base class deletes: no callback meets a deleted widget.
    Velmora::CloudAPI m_api;
    Jobs *m_jobs;
    JobTable *m_table;
    TransfersPanel *m_transfers;
    SignInDialog *m_dialog;
    QToolBar *m_bar;
    QAction *m_refresh = nullptr;
    QList<QAction *> m_forSelected;
    QComboBox *m_accounts;
    QStackedWidget *m_pages;
    QLabel *m_empty;
    QLabel *m_error;
};

#endif
