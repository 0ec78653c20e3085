#include "base/Later.h"

namespace Velmora {

namespace {

thread_local unsigned int steps = 0;

} // namespace

unsigned int stepsOnThisThread() { return steps; }

void noteStep() { ++steps; }

} // namespace Velmora
