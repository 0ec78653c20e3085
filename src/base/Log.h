#pragma once

#include <QLoggingCategory>

/// All diagnostics of the library, at debug level. No token, password or key ever goes here.
Q_DECLARE_LOGGING_CATEGORY(velmoraLog)

/// One line, items separated by blanks, text unquoted.
#define VELMORA_LOG() qCDebug(velmoraLog).noquote()
