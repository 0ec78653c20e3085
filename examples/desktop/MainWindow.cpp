#include "MainWindow.h"

#include "NewJob.h"
#include "Text.h"

#include <QCloseEvent>
#include <QComboBox>
#include <QFileDialog>
#include <QLabel>
#include <QMessageBox>
#include <QPushButton>
#include <QSplitter>
#include <QStackedWidget>
#include <QStatusBar>
#include <QStyle>
#include <QToolBar>
#include <QVBoxLayout>

using Velmora::ApiError;

namespace {

constexpr QSize DefaultSize(980, 640);

bool ask(QWidget *parent, const QString &question, const QString &yes, const QString &no)
{
    QMessageBox box(QMessageBox::Question, QString(), question, QMessageBox::NoButton, parent);
    QPushButton *accept = box.addButton(yes, QMessageBox::AcceptRole);
    accept->setObjectName(QStringLiteral("yes"));
    box.setDefaultButton(box.addButton(no, QMessageBox::RejectRole));
    box.exec();
    return box.clickedButton() == accept;
}

} // namespace

MainWindow::MainWindow()
    : m_jobs(new Jobs(m_api, this))
    , m_table(new JobTable(*m_jobs))
    , m_transfers(new TransfersPanel(m_api))
    , m_dialog(new SignInDialog(m_api, this))
    , m_bar(addToolBar(tr("Actions")))
    , m_accounts(new QComboBox)
    , m_pages(new QStackedWidget)
    , m_empty(new QLabel)
    , m_error(new QLabel)
{
    Velmora::ClientOptions options = Velmora::ClientOptions::robust();
    options.caFile = qEnvironmentVariable("VELMORA_CA").toStdString();
    m_api.setClientOptions(options);
    addActions();
    auto *splitter = new QSplitter(Qt::Vertical);
    splitter->addWidget(jobArea());
    splitter->addWidget(m_transfers);
    splitter->setSizes({DefaultSize.height() * 3 / 5, DefaultSize.height() * 2 / 5});
    splitter->setChildrenCollapsible(false);
    auto *center = new QWidget;
    (new QVBoxLayout(center))->addWidget(splitter);
    setCentralWidget(center);
    resize(DefaultSize);
    setMinimumWidth(DefaultSize.width() * 4 / 5);

    connect(m_dialog, &QDialog::rejected, this, &QWidget::close);
    connect(m_dialog, &QDialog::accepted, this, [this] {
        statusBar()->addPermanentWidget(new QLabel(tr("Signed in as %1").arg(m_dialog->user())));
        load();
    });
    connect(m_table, &JobTable::selectedChanged, this, &MainWindow::updateActions);
    connect(m_table, &JobTable::stopWanted, this, &MainWindow::stop);
    updateActions();
    showJobs(tr("Sign in to see your jobs."));
}

template <class Act> QAction *MainWindow::addAction(QStyle::StandardPixmap icon, const QString &text, Act act)
{
    return m_bar->addAction(style()->standardIcon(icon), text, this, act);
}

void MainWindow::addActions()
{
    m_bar->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
    m_bar->setMovable(false);
    m_bar->setContextMenuPolicy(Qt::PreventContextMenu);
    addAction(QStyle::SP_FileIcon, tr("New Job…"), [this] {
        const QString path = QFileDialog::getOpenFileName(this, tr("New Job"), {}, tr("Job files (*.json)"));
        if (!path.isEmpty())
            startJob(path);
    })->setShortcut(QKeySequence::New);
    m_refresh = addAction(QStyle::SP_BrowserReload, tr("Refresh"), [this] { load(); });
    m_refresh->setShortcut(QKeySequence::Refresh);
    m_bar->addSeparator();
    m_forSelected << addAction(QStyle::SP_ArrowUp, tr("Upload Files…"), [this] {
        const QString id = m_table->selected(Jobs::IdRole); // as it was when asked for
        m_transfers->upload(id.toStdString(), QFileDialog::getOpenFileNames(this, tr("Upload Files")));
    });
    m_forSelected << addAction(QStyle::SP_ArrowDown, tr("Download Results…"), [this] {
        const QString id = m_table->selected(Jobs::IdRole);
        const QString name = m_table->selected(Qt::DisplayRole);
        const QString folder = QFileDialog::getExistingDirectory(this, tr("Download Results"));
        if (!folder.isEmpty())
            m_transfers->downloadResults(id.toStdString(), name, folder);
    });
    auto *space = new QWidget;
    space->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Preferred);
    m_accounts->setSizeAdjustPolicy(QComboBox::AdjustToContents);
    m_accounts->setMinimumContentsLength(16);
    m_bar->addWidget(space);
    m_bar->addWidget(new QLabel(tr("Account:")));
    m_bar->addWidget(m_accounts);
}

/// The table, or a text in its place; above it the error of the list as a whole.
QWidget *MainWindow::jobArea()
{
    auto *again = new QPushButton(tr("Try Again"));
    connect(again, &QPushButton::clicked, this, &MainWindow::load);
    m_empty->setObjectName(QStringLiteral("empty"));
    m_empty->setAlignment(Qt::AlignCenter);
    m_empty->setFrameStyle(m_table->frameStyle()); // looks like the table that it stands for
    m_empty->setBackgroundRole(QPalette::Base);
    m_empty->setAutoFillBackground(true);
    m_pages->addWidget(m_table);
    m_pages->addWidget(m_empty);
    auto *banner = new QWidget;
    auto *line = new QHBoxLayout(banner);
    line->setContentsMargins(0, 0, 0, 0);
    line->addWidget(m_error, 1);
    line->addWidget(again);
    m_error->setObjectName(QStringLiteral("listError"));
    auto *area = new QWidget;
    auto *layout = new QVBoxLayout(area);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(banner);
    layout->addWidget(m_pages);
    banner->hide();
    return area;
}

void MainWindow::signIn() { m_dialog->open(); }

void MainWindow::load()
{
    m_refresh->setEnabled(false);
    showListError(QString());
    showJobs(tr("Loading jobs…"));
    m_jobs->load([this](const ApiError &error) {
        m_refresh->setEnabled(true);
        if (!succeeded(error))
            showListError(tr("The jobs could not be loaded. %1").arg(explain(error, m_api)));
        showJobs(succeeded(error) ? tr("No jobs yet. Start one with “New Job…”.") : QString());
    });
    if (m_accounts->count() > 0)
        return;
    m_api.getAccountList([this](const ApiError &error, const std::list<Velmora::AccountDetails> &accounts) {
        if (!succeeded(error))
            showListError(tr("The accounts could not be loaded. %1").arg(explain(error, m_api)));
        for (const auto &account : accounts)
            m_accounts->addItem(toQt(account.accountName), toQt(account.accountId));
    });
}

void MainWindow::showListError(const QString &why)
{
    showError(m_error, why);
    m_error->parentWidget()->setHidden(why.isEmpty());
}

void MainWindow::showJobs(const QString &otherwise)
{
    m_empty->setText(otherwise);
    m_pages->setCurrentIndex(m_jobs->rowCount() == 0 ? 1 : 0);
}

void MainWindow::updateActions()
{
    for (QAction *action : qAsConst(m_forSelected))
        action->setEnabled(!m_table->selected(Jobs::IdRole).isEmpty());
}

void MainWindow::startJob(const QString &jobFile)
{
    auto *job = new NewJob(m_api, *m_transfers, jobFile, m_accounts->currentData().toString().toStdString());
    connect(job, &NewJob::submitted, this, [this](const Velmora::JobDetails &details) {
        m_jobs->update(details);
        showJobs(QString());
    });
}

void MainWindow::stop(const QModelIndex &job)
{
    const QString id = job.data(Jobs::IdRole).toString(); // the row may move while the question stands
    const QString question = tr("Stop “%1”? What it has computed so far may be lost.").arg(job.data().toString());
    const bool again = !job.siblingAtColumn(Jobs::Status).data(Jobs::ErrorRole).toString().isEmpty();
    if (again || ask(this, question, tr("Stop"), tr("Keep Running")))
        m_jobs->stop(id);
}

void MainWindow::closeEvent(QCloseEvent *event)
{
    const int active = m_transfers->activeCount();
    const QString question = active == 1 ? tr("A transfer has not finished. Cancel it and close?")
                                         : tr("%1 transfers have not finished. Cancel them and close?").arg(active);
    if (active > 0 && !ask(this, question, tr("Cancel and Close"), tr("Keep Open"))) {
        event->ignore();
        return;
    }
    m_transfers->cancelAll();
    event->accept();
}
