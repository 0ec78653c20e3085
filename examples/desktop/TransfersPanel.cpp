#include "TransfersPanel.h"

#include "Text.h"

#include <QDir>
#include <QFileInfo>
#include <QLabel>
#include <QLocale>
#include <QPushButton>
#include <QScrollArea>
#include <QVBoxLayout>

#include <algorithm>

using Velmora::ApiError;

namespace {

QString amount(long long moved, long long total)
{
    return TransfersPanel::tr("%1 of %2")
        .arg(QLocale().formattedDataSize(std::min(moved, total), 1), QLocale().formattedDataSize(total, 1));
}

} // namespace

TransfersPanel::TransfersPanel(Velmora::CloudAPI &api, QWidget *parent)
    : QWidget(parent)
    , m_api(api)
    , m_rows(new QWidget)
    , m_layout(new QVBoxLayout(m_rows))
    , m_empty(new QLabel(tr("No transfers yet. Select a job to send files to it or to fetch its results.")))
{
    auto *clear = new QPushButton(tr("Clear Finished"));
    connect(clear, &QPushButton::clicked, this, &TransfersPanel::clearEnded);
    auto *head = new QHBoxLayout;
    head->addWidget(new QLabel(tr("<b>Transfers</b>")), 1);
    head->addWidget(clear);
    m_layout->setContentsMargins(0, 2, 0, 2);
    m_layout->setSpacing(0);
    m_empty->setAlignment(Qt::AlignCenter);
    m_layout->addWidget(m_empty, 1);
    m_layout->addStretch();
    auto *area = new QScrollArea;
    area->setWidgetResizable(true);
    area->setWidget(m_rows);
    area->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    m_rows->setBackgroundRole(QPalette::Base);
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addLayout(head);
    layout->addWidget(area);
}

void TransfersPanel::upload(const std::string &jobId, const QStringList &paths, const Sent &onSent)
{
    for (const QString &path : paths) {
        const Velmora::FileUploadDetails file{path.toStdString(), jobId, QFileInfo(path).size()};
        TaskRow *row = addRow(tr("↑ %1").arg(QFileInfo(path).fileName()));
        const auto onProgress = [row](const auto &details, qint64 sent) {
            const bool all = sent >= details.totalFileSize;
            row->setPhase(all ? tr("Confirming…") : tr("Sending %1").arg(amount(sent, details.totalFileSize)));
            row->setProgress(sent, details.totalFileSize);
        };
        const auto onEnd = [row, path, onSent](const ApiError &error, const auto &) {
            const bool sent = row->end(error, tr("Sent"));
            if (onSent)
                onSent(path, sent);
        };
        const auto start = [=] {
            row->setPhase(tr("Encrypting…"));
            m_api.uploadFile(file, onProgress, onEnd);
        };
        row->run(start, [this, file] { m_api.cancelUpload(file); });
    }
}

void TransfersPanel::downloadResults(const std::string &jobId, const QString &jobName, const QString &folder)
{
    TaskRow *row = addRow(tr("Results of %1").arg(jobName));
    const auto onList = [=](const ApiError &error, std::list<Velmora::CloudFile> files) {
        // Files of a simulation are results, all others are inputs.
        files.remove_if(
            [](const auto &file) { return file.directory || file.fileName.find('/') == std::string::npos; });
        if (succeeded(error) && files.empty())
            return row->fail(tr("This job has no results yet."));
        if (!row->end(error, tr("Listed")))
            return;
        row->deleteLater();
        for (const auto &file : files)
            download(file, folder);
    };
    const auto start = [=] {
        row->setPhase(tr("Asking for the list…"));
        m_api.getJobFileList(jobId, false, onList);
    };
    row->run(start, {});
}

void TransfersPanel::download(const Velmora::CloudFile &file, const QString &folder)
{
    const QString name = toQt(file.fileName);
    const Velmora::FileDownloadDetails details{QDir(folder).filePath(name).toStdString(), file};
    TaskRow *row = addRow(tr("↓ %1").arg(name));
    const auto onProgress = [row](const auto &current, qint64 received) {
        const qint64 total = current.cloudFileDetails.fileSize;
        row->setPhase(hasReceivedAll(current, received) ? tr("Decrypting…")
                                                        : tr("Receiving %1").arg(amount(received, total)));
        row->setProgress(received, total);
    };
    const auto onEnd = [row](const ApiError &error, const auto &) { row->end(error, tr("Saved")); };
    const auto start = [=] {
        row->setPhase(tr("Preparing…"));
        if (Velmora::isSafePath(details.cloudFileDetails.fileName))
            m_api.downloadFile(details, onProgress, onEnd);
        else
            row->fail(tr("A file of this name cannot be saved in a folder."));
    };
    row->run(start, [this, details] { m_api.cancelDownload(details); });
}

TaskRow *TransfersPanel::addRow(const QString &name)
{
    auto *row = new TaskRow(m_api, name, m_rows);
    m_empty->hide();
    m_layout->insertWidget(m_layout->count() - 1, row);
    return row;
}

QList<TaskRow *> TransfersPanel::rows() const { return m_rows->findChildren<TaskRow *>(); }

int TransfersPanel::activeCount() const
{
    const auto all = rows();
    return int(std::count_if(all.begin(), all.end(), [](const TaskRow *row) { return row->isActive(); }));
}

void TransfersPanel::cancelAll()
{
    for (TaskRow *row : rows())
        row->cancel();
}

void TransfersPanel::clearEnded()
{
    for (TaskRow *row : rows())
        if (!row->isActive())
            delete row;
    m_empty->setVisible(rows().isEmpty());
}
