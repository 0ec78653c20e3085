// One row of the transfers: name, bar, phase and a button, and below them the error.
#ifndef DESKTOP_TASKROW_H
#define DESKTOP_TASKROW_H

#include <velmora/CloudAPI.h>

#include <QFrame>

#include <functional>

class QLabel;
class QProgressBar;
class QPushButton;

class TaskRow : public QFrame {
    Q_OBJECT

public:
    using Act = std::function<void()>;

    TaskRow(const Velmora::CloudAPI &api, const QString &name, QWidget *parent);
    /// @param start begins the work, and again at each "Try Again"; the work must end in a call of `end` or `fail`.
    /// @param cancel makes the work end soon; empty if that is not possible
    void run(const Act &start, const Act &cancel);
    void setPhase(const QString &phase);
    void setProgress(long long moved, long long total);
    /// Shows the outcome. @return whether the work succeeded
    bool end(const Velmora::ApiError &error, const QString &phase);
    void fail(const QString &why);
    void cancel();
    bool isActive() const { return m_active; }

protected:
    void resizeEvent(QResizeEvent *event) override;

private:
    void begin();
    void settle(const QString &phase, const QString &error);

    const Velmora::CloudAPI &m_api;
    QString m_name;
    Act m_start;
    Act m_cancel;
    bool m_active = false;
    bool m_cancelled = false;
    QLabel *m_label;
    QProgressBar *m_bar;
    QLabel *m_phase;
    QPushButton *m_button;
    QLabel *m_error;
};

#endif
