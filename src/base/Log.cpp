#include "base/Log.h"

#include <QObject>
#include <QThread>

Q_LOGGING_CATEGORY(velmoraLog, "velmora")

namespace Velmora {

void logForeignThread(const QObject *owned)
{
    if (owned->thread() != QThread::currentThread())
        VELMORA_LOG() << "Cloud API: Called from a thread that does not own it; see \"Threads\" in CloudAPI.h";
}

} // namespace Velmora
