#pragma once

#include <QLoggingCategory>

class QObject;

/// All diagnostics of the library, at debug level. No token, password or key ever goes here.
Q_DECLARE_LOGGING_CATEGORY(velmoraLog)

/// One line, items separated by blanks, text unquoted.
#define VELMORA_LOG() qCDebug(velmoraLog).noquote()

namespace Velmora {

/// Logs a line when the calling thread does not own the object. Nothing else tells the application's developer: what is
/// called from a foreign thread may never complete.
void logForeignThread(const QObject *owned);

} // namespace Velmora
