#include "operations/Files.h"

#include <QStringList>
#include <QUrl>

namespace Velmora {

namespace {

QString pathOf(const DeleteFileDetails &file)
{
    const QString name = file.simulationId.empty()
                             ? toQt(file.fileName)
                             : QStringLiteral("%1/%2").arg(toQt(file.simulationId), toQt(file.fileName));
    return QStringLiteral("/%1/%2").arg(toQt(file.jobId), name);
}

} // namespace

// A URL has no way to name such a segment: it is resolved on the way, and another file is meant.
std::optional<ApiError> Files::refusalOf(const DeleteFileDetails &file)
{
    const QStringList segments = pathOf(file).split(QLatin1Char('/'));
    if (!segments.contains(QLatin1String(".")) && !segments.contains(QLatin1String("..")))
        return {};
    return ApiError{400, Endpoints::JobFilesDelete.title,
                    "The file was not deleted: its path has a part that is \".\" or \"..\"."};
}

Request Files::remove(const DeleteFileDetails &file)
{
    VELMORA_LOG() << "Delete File API call being made:";
    const QByteArray path = QUrl::toPercentEncoding(pathOf(file), "/!$&'()*+,;=:@");
    return {Endpoints::JobFilesDelete, Verb::Delete, {}, QString::fromLatin1(path)};
}

} // namespace Velmora
