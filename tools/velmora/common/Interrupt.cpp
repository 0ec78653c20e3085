#include "common/Terminal.h"

namespace Velmora::Cli {

Interrupt &Interrupt::instance()
{
    static Interrupt *interrupt = nullptr;
    if (interrupt == nullptr) {
        interrupt = new Interrupt;
        QObject::connect(interrupt, &QObject::destroyed, [] { interrupt = nullptr; });
    }
    return *interrupt;
}

} // namespace Velmora::Cli
