#include "SignInDialog.h"

#include "Text.h"

#include <QDialogButtonBox>
#include <QFormLayout>
#include <QLabel>
#include <QLineEdit>
#include <QProgressBar>
#include <QPushButton>

namespace {

constexpr const char *HostVariable = "VELMORA_API_URL"; // the library reads it at each request
constexpr int FieldWidth = 320;
constexpr int BusyHeight = 6;

} // namespace

SignInDialog::SignInDialog(Velmora::CloudAPI &api, QWidget *parent)
    : QDialog(parent)
    , m_api(api)
    , m_form(new QFormLayout)
    , m_error(new QLabel)
    , m_busy(new QProgressBar)
{
    setWindowTitle(tr("Sign In"));
    m_portal = addField(tr("P&ortal:"), "portal", HostVariable);
    m_portal->setPlaceholderText(tr("the production portal"));
    m_user = addField(tr("&User:"), "user", "VELMORA_USER");
    m_password = addField(tr("&Password:"), "password");
    m_password->setEchoMode(QLineEdit::Password);
    m_mfa = addField(tr("MFA &code:"), "mfa");
    m_mfa->setPlaceholderText(tr("from your authenticator"));
    showMfa(false);
    connect(m_user, &QLineEdit::textEdited, this, [this] { showMfa(false); });

    m_error->setObjectName(QStringLiteral("error"));
    m_error->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Minimum); // as wide as the fields, as high as its text
    m_error->hide();
    m_busy->setRange(0, 0);
    m_busy->setTextVisible(false);
    m_busy->setFixedHeight(BusyHeight);
    QSizePolicy keepsRoom = m_busy->sizePolicy();
    keepsRoom.setRetainSizeWhenHidden(true);
    m_busy->setSizePolicy(keepsRoom);
    m_busy->hide();

    // A button must be in its dialog before it becomes the default button, or it stops being that once it had the
    // focus.
    auto *buttons = new QDialogButtonBox(QDialogButtonBox::Cancel, this);
    m_signIn = buttons->addButton(tr("Sign In"), QDialogButtonBox::AcceptRole);
    m_signIn->setObjectName(QStringLiteral("signIn"));
    m_signIn->setDefault(true);
    QPushButton *cancel = buttons->button(QDialogButtonBox::Cancel);
    cancel->setIcon(QIcon());
    cancel->setAutoDefault(false); // Enter signs in, wherever the focus is
    connect(buttons, &QDialogButtonBox::accepted, this, &SignInDialog::begin);
    connect(buttons, &QDialogButtonBox::rejected, this, &SignInDialog::reject);

    auto *layout = new QVBoxLayout(this);
    layout->addLayout(m_form);
    layout->addWidget(m_error);
    layout->addWidget(m_busy);
    layout->addWidget(buttons);
    layout->setSizeConstraint(QLayout::SetFixedSize); // grows and shrinks with the error and the code
    (m_user->text().isEmpty() ? m_user : m_password)->setFocus();
}

QString SignInDialog::user() const { return m_user->text().trimmed(); }

QLineEdit *SignInDialog::addField(const QString &label, const char *name, const char *variable)
{
    auto *field = new QLineEdit(qEnvironmentVariable(variable));
    field->setObjectName(QLatin1String(name));
    field->setMinimumWidth(FieldWidth);
    m_form->addRow(label, field);
    return field;
}

/// First asks the service whether the user needs a code, unless the field for it is shown already.
void SignInDialog::begin()
{
    if (user().isEmpty() || m_password->text().isEmpty())
        return stay(tr("Enter your user name and your password."), user().isEmpty() ? m_user : m_password);
    qputenv(HostVariable, m_portal->text().trimmed().toUtf8());
    setBusy(true);
    if (!m_mfa->isHidden())
        return signIn();
    m_api.checkMFAEnabled(user().toStdString(), [this](const Velmora::ApiError &error, bool enabled) {
        if (!succeeded(error))
            return stay(explain(error, m_api), m_user);
        if (!enabled)
            return signIn();
        showMfa(true);
        stay(QString(), m_mfa);
    });
}

void SignInDialog::signIn()
{
    const QString code = m_mfa->text().remove(QLatin1Char(' '));
    m_api.logUserIn(user().toStdString(), m_password->text().toStdString(), code.toStdString(),
                    [this](const Velmora::ApiError &error) {
                        if (!succeeded(error))
                            return stay(explain(error, m_api), m_mfa->isHidden() ? m_password : m_mfa);
                        setBusy(false);
                        m_password->clear();
                        accept();
                    });
}

void SignInDialog::showMfa(bool visible)
{
    m_mfa->clear();
    m_mfa->setVisible(visible);
    m_form->labelForField(m_mfa)->setVisible(visible);
}

void SignInDialog::setBusy(bool busy)
{
    for (QWidget *widget :
         {static_cast<QWidget *>(m_portal), static_cast<QWidget *>(m_user), static_cast<QWidget *>(m_password),
          static_cast<QWidget *>(m_mfa), static_cast<QWidget *>(m_signIn)})
        widget->setDisabled(busy);
    m_busy->setVisible(busy);
    showError(m_error, QString());
}

void SignInDialog::stay(const QString &problem, QLineEdit *field)
{
    setBusy(false);
    showError(m_error, problem);
    field->setFocus();
    field->selectAll();
}
