#include "Commands.h"

#include "Files.h"
#include "Json.h"
#include "Output.h"

#include <QFileInfo>

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

/// Percent-encodes what would end the request's address.
std::string addressable(const std::string &fileName)
{
    QString name = QString::fromStdString(fileName);
    name.replace(QLatin1Char('%'), QLatin1String("%25"));
    name.replace(QLatin1Char('#'), QLatin1String("%23"));
    name.replace(QLatin1Char('?'), QLatin1String("%3F"));
    return name.toStdString();
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
    print(options, {{QStringLiteral("fileList"), toJsonArray(listing)}}, [&] {
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

void upload(const Options &options)
{
    QStringList paths;
    for (const std::string &file : options.files)
        paths << QString::fromStdString(file);
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
    const bool all = options.allFiles || !options.files.empty();
    const auto listing = session.get<std::list<CloudFile>>(
        [&](const auto &done) { session.api().getJobFileList(options.jobId, all, done); });
    const QString folder = downloadFolder(options, options.jobId);
    Batch batch = selectedDownloads(listing, options, folder);
    if (!batch.transfers.empty())
        moveFiles(session, options,
                  QStringLiteral("downloading %1 of %2 to %3")
                      .arg(countText(batch), shown(options.jobId), shown(folder.toStdString())),
                  batch);
    const QJsonObject document = documentOf(options.jobId, "downloads", batch);
    if (auto failure = batchFailure(session, batch, retryHint(options, batch, options.jobId)))
        throw failure->with(document);
    print(options, document, [&] { return fitted(transferTable(batch, QStringLiteral("SAVED AS"))); });
}

void rm(const Options &options)
{
    Session session(options);
    session.signIn();
    const std::string &name = options.files.front();
    session.get<DeleteFileDetails>([&](const auto &done) {
        session.api().deleteFile({options.jobId, std::string(), addressable(name)}, done);
    });
    print(options,
          {{QStringLiteral("jobId"), QString::fromStdString(options.jobId)},
           {QStringLiteral("fileName"), QString::fromStdString(name)}},
          [&] { return QStringLiteral("deleted %1 of %2\n").arg(shown(name), shown(options.jobId)); });
}

} // namespace Velmora::Cli
