#include "commands/Commands.h"

#include "common/Json.h"
#include "common/Output.h"
#include "common/Terminal.h"
#include "transfers/Files.h"
#include "transfers/Selector.h"

#include <QDir>
#include <QFileInfo>
#include <QTemporaryDir>

#include <algorithm>

namespace Velmora::Cli {

namespace {

QJsonObject documentOf(const std::string &jobId, const char *key, const Batch &batch)
{
    return {{QStringLiteral("jobId"), QString::fromStdString(jobId)}, {QLatin1String(key), batch.toJson()}};
}

Table transferTable(const Batch &batch, const QString &localTitle)
{
    Table table({{QStringLiteral("FILE"), Align::Left, true},
                 {QStringLiteral("SIZE"), Align::Right},
                 {localTitle, Align::Left, true}});
    for (const Transfer &transfer : batch.transfers)
        table.add({shown(transfer.file.fileName), sizeText(QFileInfo(transfer.localPath).size()),
                   shown(transfer.localPath.toStdString())});
    return table;
}

std::list<CloudFile> filesOf(Session &session, const std::string &jobId, bool all)
{
    return session.get<std::list<CloudFile>>([&](const auto &done) { session.api().getJobFileList(jobId, all, done); });
}

Failure noSuchFile(const std::string &jobId, const std::string &name)
{
    return Failure(ExitCode::Refused, ApiError{404, "No Such File", jobId + " has no file of that name"},
                   QStringLiteral("%1: %2 has no file of that name").arg(shown(name), shown(jobId)));
}

/// The service tells the stored size only. Encryption has added 1 to 16 bytes to each piece of the file.
QJsonArray withSizes(const std::list<CloudFile> &listing)
{
    QJsonArray array;
    for (const CloudFile &file : listing) {
        QJsonObject object = toJson(file);
        object.insert(QStringLiteral("storedSize"), qint64(file.fileSize));
        object.insert(QStringLiteral("plainSizeAtMost"), qint64(std::max(0LL, file.fileSize - 1)));
        array.append(object);
    }
    return array;
}

/// The files to upload: those that are named, and those in the folders that are named.
QStringList expanded(const std::vector<std::string> &arguments)
{
    QStringList paths;
    for (const std::string &argument : arguments) {
        const QString path = QString::fromStdString(argument);
        if (!QFileInfo(path).isDir()) {
            paths << path;
            continue;
        }
        for (const QString &file : filesBelow(path))
            paths << QDir(path).filePath(file);
    }
    return paths;
}

} // namespace

void files(const Options &options)
{
    Session session(options);
    session.signIn();
    const auto listing = session.get<std::list<CloudFile>>([&](const auto &done) {
        if (options.jobId.empty())
            session.api().getUsersFileList(options.allFiles, done);
        else if (options.simulationId.empty())
            session.api().getJobFileList(options.jobId, options.allFiles, done);
        else
            session.api().getSimulationFileList(options.jobId, options.simulationId, options.allFiles, done);
    });
    print(options, {{QStringLiteral("fileList"), withSizes(listing)}}, [&] {
        std::vector<Table::Column> columns{{QStringLiteral("FILE"), Align::Left, true},
                                           {QStringLiteral("SIZE"), Align::Right},
                                           {QStringLiteral("DATE"), Align::Left}};
        if (options.jobId.empty())
            columns.insert(columns.begin(), {QStringLiteral("JOB"), Align::Left});
        Table table(columns);
        for (const CloudFile &file : listing) {
            QStringList cells{shown(file.fileName) + (file.directory ? QStringLiteral("/") : QString()),
                              file.directory ? QString() : sizeText(file.fileSize), dateText(file.fileDate).left(16)};
            if (options.jobId.empty())
                cells.prepend(shown(file.jobId));
            table.add(cells);
        }
        return fitted(table);
    });
}

void upload(const Options &given)
{
    Options options = given;
    if (!options.jobOption.empty()) {
        warn(options, QStringLiteral("the job comes first now: velmora upload JOB FILE..."));
        options.files.insert(options.files.begin(), options.jobId);
        options.jobId = options.jobOption;
    }
    const QStringList paths = expanded(options.files);
    if (paths.isEmpty())
        throw Failure(ExitCode::WrongUse, QStringLiteral("Wrong Use"),
                      QStringLiteral("no files to upload: velmora upload JOB FILE..."));
    Batch batch = uploadsOf(checkedInputs(paths), options.jobId);
    Session session(options);
    session.signIn();
    moveFiles(session, options, QStringLiteral("uploading %1 to %2").arg(countText(batch), shown(options.jobId)),
              batch);
    const QJsonObject document = documentOf(options.jobId, "uploads", batch);
    if (auto failure = batchFailure(session, batch, retryHint(options, batch, options.jobId)))
        throw failure->with(document);
    print(options, document, [&] { return fitted(transferTable(batch, QStringLiteral("SENT FROM"))); });
}

void download(const Options &options)
{
    checkDownloadFolder(options);
    Session session(options);
    session.signIn();
    // A name or pattern may select hidden files.
    const auto listing = filesOf(session, options.jobId, options.allFiles || !options.files.empty());
    const QString folder = downloadFolder(options, options.jobId);
    Batch batch = selectedDownloads(listing, options, folder);
    if (!batch.transfers.empty())
        moveFiles(session, options,
                  QStringLiteral("downloading %1 of %2 to %3")
                      .arg(countText(batch), shown(options.jobId), shown(folder.toStdString())),
                  batch);
    keepDates(batch);
    const QJsonObject document = documentOf(options.jobId, "downloads", batch);
    if (auto failure = batchFailure(session, batch, retryHint(options, batch, options.jobId)))
        throw failure->with(document);
    print(options, document, [&] { return fitted(transferTable(batch, QStringLiteral("SAVED AS"))); });
}

void cat(const Options &options)
{
    Session session(options);
    session.signIn();
    const auto listing = filesOf(session, options.jobId, true);
    const std::string &name = options.files.front();
    const auto file = std::find_if(listing.begin(), listing.end(), [&](const CloudFile &candidate) {
        return candidate.fileName == name && !candidate.directory;
    });
    if (file == listing.end())
        throw noSuchFile(options.jobId, name);
    const QTemporaryDir folder; // readable by the user only
    Batch batch;
    batch.transfers.push_back(Transfer::down(*file, folder.filePath(QStringLiteral("file"))));
    moveFiles(session, options, QStringLiteral("downloading %1").arg(countText(batch)), batch);
    if (const auto failure = batchFailure(session, batch, QString()))
        throw Failure(*failure);
    QFile content(batch.transfers.front().localPath);
    QFile output;
    bool isWritten = content.open(QIODevice::ReadOnly) && Terminal::openOutput(output);
    while (isWritten && !content.atEnd()) {
        const QByteArray bytes = content.read(1 << 20);
        isWritten = !bytes.isEmpty() && output.write(bytes) == bytes.size();
    }
    if (!isWritten || !output.flush())
        throw Failure(ExitCode::WrongUse, QStringLiteral("Error"), QStringLiteral("standard output cannot be written"));
}

void rm(const Options &options)
{
    Session session(options);
    session.signIn();
    const auto listing = filesOf(session, options.jobId, true);
    std::set<std::string> names;
    bool isNamed = true;
    for (const std::string &argument : options.files) {
        const Selector selector(argument, options.recursive ? Selector::Reach::Folders : Selector::Reach::WholeNames);
        const auto selected = selector.in(listing, options.allFiles);
        if (selected.empty() && !options.recursive &&
            std::any_of(listing.begin(), listing.end(), [&](const CloudFile &file) { return selector.isIn(file); }))
            throw Failure(ExitCode::WrongUse, QStringLiteral("Wrong Use"),
                          QStringLiteral("%1 is a folder; give --recursive").arg(shown(argument)));
        if (selected.empty())
            throw noSuchFile(options.jobId, argument);
        isNamed = isNamed && selected.count(argument) > 0;
        names.insert(selected.begin(), selected.end());
    }
    QString list;
    QJsonArray array;
    for (const std::string &name : names) {
        list += QStringLiteral("  %1\n").arg(shown(name));
        array.append(QString::fromStdString(name));
    }
    if (!isNamed)
        confirm(options,
                list + QStringLiteral("Delete these %1 files of %2?").arg(names.size()).arg(shown(options.jobId)));
    deleteFiles(session, options.jobId, names);
    QJsonObject document{{QStringLiteral("jobId"), QString::fromStdString(options.jobId)},
                         {QStringLiteral("fileNames"), array}};
    if (names.size() == 1)
        document.insert(QStringLiteral("fileName"), array.first());
    print(options, document, [&] {
        QString text;
        for (const std::string &name : names)
            text += QStringLiteral("deleted %1 of %2\n").arg(shown(name), shown(options.jobId));
        return text;
    });
}

} // namespace Velmora::Cli
