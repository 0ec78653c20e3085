#pragma once

#include <QByteArray>

#include <optional>

namespace Velmora {

/// The content of a gzip body. Nothing when the body is cut or damaged, or when more than `limit` bytes would come out;
/// unpacking stops there.
std::optional<QByteArray> gunzip(const QByteArray &packed, qint64 limit);

} // namespace Velmora
