#include "InC.h"

#define FLAT_EXPORT(name) (FlatAddress) name,
const FlatAddress flatAddressesInC[] = {
#include "Exports.inc"
    0};

const size_t flatLayoutInC[] = FLAT_LAYOUT;
