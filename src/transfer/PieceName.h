#pragma once

#include <QString>

namespace Velmora {

/// The name of a piece is that of its file with a suffix like "._00002_00005": its number, and how many there are.

/// The number in the suffix; -1 for a name without one.
int pieceNumber(const QString &name);
QString withoutPieceSuffix(const QString &name);

/// The part of a cloud name behind the last "/".
QString baseName(const QString &name);

/// False for a name that would lead out of the folder it is put into, on any platform; on Windows also for a name that
/// Windows forbids.
bool isSafeFileName(const QString &name);
/// False for names of devices (CON, COM1.txt), names that Windows would cut ("a.", "a ") and characters that no name
/// may hold there.
bool isWindowsFileName(const QString &name);

} // namespace Velmora
