// Asks for portal, user, password and, where the user has one, the multi-factor code; signs in.
#ifndef DESKTOP_SIGNINDIALOG_H
#define DESKTOP_SIGNINDIALOG_H

#include <velmora/CloudAPI.h>

#include <QDialog>

class QFormLayout;
class QLabel;
class QLineEdit;
class QProgressBar;
class QPushButton;

/// Accepted once signed in.
class SignInDialog : public QDialog {
    Q_OBJECT

public:
    SignInDialog(Velmora::CloudAPI &api, QWidget *parent);
    QString user() const;

private:
    QLineEdit *addField(const QString &label, const char *name, const char *variable = "");
    void begin();
    void signIn();
    void showMfa(bool visible);
    void setBusy(bool busy);
    void stay(const QString &problem, QLineEdit *field);

    Velmora::CloudAPI &m_api;
    QFormLayout *m_form;
    QLineEdit *m_portal;
    QLineEdit *m_user;
    QLineEdit *m_password;
    QLineEdit *m_mfa;
    QLabel *m_error;
    QProgressBar *m_busy;
    QPushButton *m_signIn;
};

#endif
