#include <velmora/Version.h>

const char *velmoraVersion() { return VELMORA_VERSION; }
