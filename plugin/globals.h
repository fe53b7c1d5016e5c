// Process-wide values written once by REALPluginMain and read everywhere.
#pragma once

#include <cstdint>

#include "REALplugin.h"

// The host's resolver; every service look-up goes through it.
extern REALResolver gResolver;
// The host's version as reported by "REALGetRBVersion" (0.0 when the host lacks it).
extern double rbversion_rbversion;
// The interface version reported to the host (12, 11, 10 or 9).
extern int32_t CurrentREALControlVersion;
