#include "NewJob.h"

#include "Text.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QPointer>

using Velmora::ApiError;

NewJob::NewJob(Velmora::CloudAPI &api, TransfersPanel &transfers, const QString &jobFile, const std::string &accountId)
    : m_api(api)
    , m_transfers(transfers)
    , m_jobFile(jobFile)
    , m_row(transfers.addRow(tr("New job from %1").arg(QFileInfo(jobFile).fileName())))
{
    m_job.accountID = accountId;
    setParent(m_row);
    m_row->run([this] { advance(); }, {});
}

void NewJob::read()
{
    QFile file(m_jobFile);
    const std::string account = m_job.accountID;
    m_job = Velmora::JobSubmit(file.open(QIODevice::ReadOnly) ? file.readAll().toStdString() : std::string());
    m_job.accountID = account;
    m_job.originApplication = "Velmora Desktop";
    const QDir folder = QFileInfo(m_jobFile).dir();
    m_unsent = QStringList(folder.filePath(toQt(m_job.mainFile)));
    for (const std::string &name : m_job.dependentFilesList)
        m_unsent << folder.filePath(toQt(name));
    m_unsent.removeDuplicates();
}

/// What is wrong with the job, one problem per line. The id comes later.
QString NewJob::problems() const
{
    std::list<Velmora::JobSubmitError> errors;
    m_job.validate(&errors);
    errors.remove(Velmora::JobSubmitError::MissingJobID);
    QStringList lines;
    for (const auto error : errors)
        lines << toQt(Velmora::plainText(Velmora::JobSubmit::errorMessage(error)));
    return lines.join(QLatin1Char('\n'));
}

void NewJob::advance()
{
    if (m_job.jobID.empty())
        read(); // again: the user may have corrected it
    if (const QString why = problems(); !why.isEmpty())
        return m_row->fail(why);
    if (!m_job.jobID.empty())
        return m_unsent.isEmpty() ? submit() : sendInputs();
    m_row->setPhase(tr("Asking for a job id…"));
    m_api.generateNewJobID(m_job.accountID, [this](const ApiError &error, const std::string &id) {
        if (!succeeded(error))
            return m_row->fail(explain(error, m_api));
        m_job.jobID = id;
        sendInputs();
    });
}

void NewJob::sendInputs()
{
    m_row->setPhase(tr("Waiting for its files…"));
    m_sending = m_unsent.size();
    m_transfers.upload(m_job.jobID, m_unsent, [self = QPointer<NewJob>(this)](const QString &path, bool sent) {
        if (self)
            self->onSent(path, sent);
    });
}

void NewJob::onSent(const QString &path, bool sent)
{
    if (sent)
        m_unsent.removeAll(path);
    if (!m_row->isActive() || --m_sending > 0) // a file may be tried again by itself
        return;
    if (m_unsent.isEmpty())
        submit();
    else
        m_row->fail(tr("Not all of its files were sent."));
}

void NewJob::submit()
{
    m_row->setPhase(tr("Submitting…"));
    m_api.submitNewJob(m_job, [this](const ApiError &error, const Velmora::JobDetails &job) {
        if (m_row->end(error, tr("Submitted")))
            emit submitted(job);
    });
}
