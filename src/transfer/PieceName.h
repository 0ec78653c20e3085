#pragma once

#include <QString>

namespace Velmora {

/// A piece is called after its file, with a suffix like "._00002_00005": its number among how many.

/// The number in the suffix; -1 for a name without one.
int pieceNumber(const QString &name);
QString withoutPieceSuffix(const QString &name);

/// The part of a cloud name behind the last "/".
QString baseName(const QString &name);

/// False for a name that would end up anywhere but in the folder it is put into, on any platform; on Windows also
/// for one that Windows forbids.
bool isSafeFileName(const QString &name);
/// False for names of devices (CON, COM1.txt), names that Windows would cut ("a.", "a ") and characters that no name
/// may hold there.
bool isWindowsFileName(const QString &name);

} // namespace Velmora
