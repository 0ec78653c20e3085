#pragma once

#include <QString>

namespace Velmora {

/// The name of a piece is that of its file with a suffix like "._00002_00005": its number, and how many there are.

/// The number in the suffix; -1 for a name without one.
int pieceNumber(const QString &name);
QString withoutPieceSuffix(const QString &name);

/// The part of a cloud name behind the last "/".
QString baseName(const QString &name);

/// Whether the name, put into a folder, names a file in that folder: `isSafePath` for a single part.
bool isSafeFileName(const QString &name);

} // namespace Velmora
