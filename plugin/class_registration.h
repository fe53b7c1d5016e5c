// Preparing a class-extension record for the running host and registering it.
#pragma once

#include <cstdint>

#include "REALplugin.h"

// The interface version spoken to a host of version `hostVersion`.
int32_t InterfaceVersionForHost(double hostVersion);

// Rewrites one flag word for a host of version `hostVersion`: from 2010.029 on, bits 0x40000
// and 0x80000 turn into 0x4 and 0x8; on every host bits 0x1C0000 are cleared.
REALword FixFlagWord(REALword flags, double hostVersion);

// Applies FixFlagWord to the class flags and to the flag word of every method, shared method,
// property and shared property row, in that order.
void FixClassFlags(REALclassDefinition* record, double hostVersion);

// A new table of `count` older 40-byte property rows holding words 0 to 9 of each row of
// `properties`, or null for a null table, a count of 0 or a size out of range. Never freed.
REALpropertyV9* FixProperties(const REALproperty* properties, REALword count);

// Registers `record` with interface version `interfaceVersion`: as it is from version 10 on,
// through the older layout (written back into words 0 to 24 of `record`) for version 9.
void RegisterClassRecord(REALclassDefinition* record, int32_t interfaceVersion);
