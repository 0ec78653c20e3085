#include "InC.h"

#include <stddef.h>

/* Links only when every export has C linkage. */
#define FLAT_EXPORT(name) (void (*)(void)) name,
void (*const flatAddressesInC[])(void) = {
#include "Exports.inc"
    0};

const size_t flatLayoutInC[] = FLAT_LAYOUT;
