#include "TaskRow.h"

#include "Text.h"

#include <QGridLayout>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>

#include <algorithm>

namespace {

constexpr int Steps = 1000; // of the bar: an int would not hold the bytes of a large file

} // namespace

TaskRow::TaskRow(const Velmora::CloudAPI &api, const QString &name, QWidget *parent)
    : QFrame(parent)
    , m_api(api)
    , m_name(name)
    , m_label(new QLabel)
    , m_bar(new QProgressBar)
    , m_phase(new QLabel)
    , m_button(new QPushButton)
    , m_error(new QLabel)
{
    const int letter = fontMetrics().averageCharWidth();
    m_label->setTextFormat(Qt::PlainText);
    m_label->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
    m_label->setToolTip(name);
    m_bar->setTextVisible(false);
    m_bar->setFixedSize(24 * letter, fontMetrics().height());
    m_phase->setFixedWidth(34 * letter);
    m_phase->setObjectName(QStringLiteral("phase"));
    m_button->setFixedWidth(14 * letter);
    QSizePolicy policy = m_button->sizePolicy();
    policy.setRetainSizeWhenHidden(true);
    m_button->setSizePolicy(policy);
    m_error->setObjectName(QStringLiteral("error"));
    showError(m_error, QString());

    auto *grid = new QGridLayout(this);
    grid->setContentsMargins(6, 2, 6, 2);
    grid->setVerticalSpacing(2);
    grid->setHorizontalSpacing(12);
    grid->setColumnStretch(0, 1);
    int column = 0;
    for (QWidget *part : {static_cast<QWidget *>(m_label), static_cast<QWidget *>(m_bar),
                          static_cast<QWidget *>(m_phase), static_cast<QWidget *>(m_button)})
        grid->addWidget(part, 0, column++);
    grid->addWidget(m_error, 1, 0, 1, 4);
    connect(m_button, &QPushButton::clicked, this, [this] { m_active ? cancel() : begin(); });
}

void TaskRow::run(const Act &start, const Act &cancel)
{
    m_start = start;
    m_cancel = cancel;
    begin();
}

void TaskRow::begin()
{
    m_active = true;
    m_cancelled = false;
    showError(m_error, QString());
    m_bar->setRange(0, 0); // busy, until there is something to count
    m_button->setText(tr("Cancel"));
    m_button->setVisible(m_cancel != nullptr);
    m_start();
}

void TaskRow::setPhase(const QString &phase) { m_phase->setText(phase); }

void TaskRow::setProgress(long long moved, long long total)
{
    m_bar->setRange(0, Steps);
    m_bar->setValue(total > 0 ? int(double(std::min(moved, total)) / double(total) * Steps) : 0);
}

bool TaskRow::end(const Velmora::ApiError &error, const QString &phase)
{
    const bool done = succeeded(error);
    settle(done          ? phase
           : m_cancelled ? tr("Cancelled")
                         : tr("Failed"),
           done || m_cancelled ? QString() : explain(error, m_api));
    if (done)
        setProgress(1, 1);
    m_button->setHidden(done);
    return done;
}

void TaskRow::fail(const QString &why) { settle(tr("Failed"), why); }

void TaskRow::settle(const QString &phase, const QString &error)
{
    m_active = false;
    setPhase(phase);
    setProgress(0, 1);
    showError(m_error, error);
    m_button->setText(tr("Try Again"));
    m_button->show();
}

void TaskRow::cancel()
{
    m_cancelled = true;
    if (m_active && m_cancel)
        m_cancel();
}

void TaskRow::resizeEvent(QResizeEvent *event)
{
    QFrame::resizeEvent(event);
    m_label->setText(m_label->fontMetrics().elidedText(m_name, Qt::ElideMiddle, m_label->width()));
}
