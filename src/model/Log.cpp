#include "model/Log.h"

Q_LOGGING_CATEGORY(velmoraLog, "velmora")
