#include <velmora/CloudAPIFlat.h>

/* Links only when every export has C linkage. */
#define FLAT_EXPORT(name) (void (*)(void)) name,
void (*const flatAddressesInC[])(void) = {
#include "Exports.inc"
    FLAT_EXPORT(velmoraVersion) 0};

/* C lays a structure out as C++ does when what stands for a list is as large as one. */
const uint64_t jobDetailsSizeInC = sizeof(VelmoraJobDetailsView);
