#include "run/Journal.h"

#include "common/Output.h"
#include "common/Terminal.h"

#include <QFileInfo>
#include <QJsonDocument>

namespace Velmora::Cli {

namespace {

const QByteArray FirstLine = "velmora run journal 1\n";

QString baseName(const QString &path) { return QFileInfo(path).fileName(); }
QString absolute(const QString &path) { return QFileInfo(path).absoluteFilePath(); }

/// What changes when the service has another file of the same name.
QString versionOf(const CloudFile &file)
{
    return QStringLiteral("%1 %2").arg(file.fileHash.empty() ? QString::number(file.fileDate)
                                                             : QString::fromStdString(file.fileHash),
                                       QString::number(file.fileSize));
}

QString nameOf(Journal::Submission submission)
{
    return submission == Journal::Submission::Done    ? QStringLiteral("done")
           : submission == Journal::Submission::Begun ? QStringLiteral("begun")
                                                      : QStringLiteral("none");
}

std::string textOf(const QJsonObject &line, const char *key)
{
    return line[QLatin1String(key)].toString().toStdString();
}

} // namespace

Journal::Journal(const Options &options)
    : m_path(QString::fromStdString(options.journal.empty() ? options.jobFile + ".journal" : options.journal))
    , m_file(m_path)
{
    QString problem;
    const int descriptor = Terminal::openExclusively(m_path, problem);
    if (descriptor < 0 && problem.isEmpty())
        throw Failure(ExitCode::WrongUse, QStringLiteral("Already Running"),
                      QStringLiteral("another velmora runs %1 now (it holds %2); see its job with \"velmora jobs\"")
                          .arg(QString::fromStdString(options.jobFile), m_path));
    if (descriptor < 0 ||
        !m_file.open(descriptor, QIODevice::ReadWrite | QIODevice::Unbuffered, QFileDevice::AutoCloseHandle)) {
        warn(
            options,
            QStringLiteral("%1: %2; if this run is interrupted, it cannot go on (see --journal)").arg(m_path, problem));
        return;
    }
    read();
}

void Journal::read()
{
    const QByteArray bytes = m_file.readAll();
    if (m_file.error() != QFileDevice::NoError || !(bytes.startsWith(FirstLine) || FirstLine.startsWith(bytes)))
        throw Failure(ExitCode::WrongUse, QStringLiteral("Bad Journal"),
                      QStringLiteral("%1 is no journal of a run; it was left as it is").arg(m_path));
    if (!bytes.startsWith(FirstLine)) {
        restart();
        return;
    }
    const qint64 end = bytes.lastIndexOf('\n') + 1;
    for (const QByteArray &line : bytes.left(int(end)).split('\n'))
        take(QJsonDocument::fromJson(line).object());
    m_file.resize(end);
    m_file.seek(end);
}

void Journal::take(const QJsonObject &line)
{
    if (line.contains(QLatin1String("jobId"))) {
        m_jobId = textOf(line, "jobId");
        m_host = textOf(line, "host");
        m_accountId = textOf(line, "accountId");
        m_hpcId = textOf(line, "hpcId");
    } else if (line.contains(QLatin1String("submission"))) {
        const QString name = line[QLatin1String("submission")].toString();
        for (const Submission each : {Submission::None, Submission::Begun, Submission::Done})
            if (name == nameOf(each))
                m_submission = each;
        m_definition = line[QLatin1String("definition")].toObject();
    } else if (line.contains(QLatin1String("sent"))) {
        m_sent[line[QLatin1String("sent")].toString()] = LocalFile::of(line);
    } else if (line.contains(QLatin1String("fetched"))) {
        m_fetched[line[QLatin1String("fetched")].toString()] = {LocalFile::of(line),
                                                                line[QLatin1String("version")].toString()};
    }
}

bool Journal::append(const QJsonObject &line)
{
    take(line);
    if (!m_file.isOpen())
        return true;
    const qint64 end = m_file.pos();
    const QByteArray bytes = QJsonDocument(line).toJson(QJsonDocument::Compact) + '\n';
    if (m_file.write(bytes) == bytes.size())
        return true;
    m_file.resize(end); // what follows begins a line of its own
    m_file.seek(end);
    return false;
}

void Journal::appendForSure(const QJsonObject &line)
{
    if (!append(line) || (m_file.isOpen() && !Terminal::sync(m_file.handle())))
        throw Failure(ExitCode::WrongUse, QStringLiteral("Journal Not Written"),
                      QStringLiteral("%1: %2").arg(m_path, m_file.errorString()));
}

void Journal::forget()
{
    m_jobId.clear();
    m_submission = Submission::None;
    m_definition = {};
    m_sent.clear();
    m_fetched.clear();
}

bool Journal::restart() { return m_file.resize(0) && m_file.seek(0) && m_file.write(FirstLine) == FirstLine.size(); }

void Journal::begin(const std::string &jobId, const std::string &host, const std::string &accountId,
                    const std::string &hpcId)
{
    forget();
    if (m_file.isOpen())
        restart(); // when that fails, so does the next one
    appendForSure({{QStringLiteral("jobId"), QString::fromStdString(jobId)},
                   {QStringLiteral("host"), QString::fromStdString(host)},
                   {QStringLiteral("accountId"), QString::fromStdString(accountId)},
                   {QStringLiteral("hpcId"), QString::fromStdString(hpcId)}});
}

void Journal::note(Submission submission, const QJsonObject &definition)
{
    appendForSure({{QStringLiteral("submission"), nameOf(submission)}, {QStringLiteral("definition"), definition}});
}

void Journal::note(const Transfer &transfer)
{
    QJsonObject line = transfer.local.toJson();
    if (transfer.direction == Transfer::Direction::Up) {
        line.insert(QStringLiteral("sent"), QString::fromStdString(transfer.file.fileName));
    } else {
        line.insert(QStringLiteral("fetched"), absolute(transfer.localPath));
        line.insert(QStringLiteral("version"), versionOf(transfer.file));
    }
    append(line); // without the line the file is transferred once more
}

bool Journal::isSent(const QString &path) const
{
    const auto found = m_sent.find(baseName(path));
    return found != m_sent.end() && found->second.isAt(path);
}

bool Journal::isFetched(const Transfer &download) const
{
    const auto found = m_fetched.find(absolute(download.localPath));
    return found != m_fetched.end() && found->second.version == versionOf(download.file) &&
           found->second.file.looksLike(LocalFile::at(download.localPath));
}

std::set<QString> Journal::sent() const
{
    std::set<QString> names;
    for (const auto &[name, file] : m_sent)
        names.insert(name);
    return names;
}

} // namespace Velmora::Cli
