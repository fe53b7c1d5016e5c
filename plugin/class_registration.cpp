#include "class_registration.h"

#include <cstdlib>
#include <cstring>

#include "host_services.h"

namespace {

constexpr REALword kFlagBitsRemoved = 0x1C0000;

// Zeroed storage for a row table, or null when its byte size is 0 or 2^31 or more (a negative
// count counts as a huge one). The size is computed without wrap-around.
template <typename Row>
Row* NewTable(REALword count) {
  if (count <= 0 || static_cast<uint64_t>(count) > 0x7FFFFFFFu / sizeof(Row)) return nullptr;
  return static_cast<Row*>(std::calloc(static_cast<size_t>(count), sizeof(Row)));
}

template <typename Row>
void FixRowFlags(void* table, REALword count, double hostVersion) {
  if (table == nullptr || count <= 0) return;
  Row* rows = static_cast<Row*>(table);
  for (REALword i = 0; i < count; ++i) {
    if constexpr (requires { rows[i].mFlags; }) {
      rows[i].mFlags = FixFlagWord(rows[i].mFlags, hostVersion);
    } else {
      rows[i].flags = FixFlagWord(rows[i].flags, hostVersion);
    }
  }
}

// Older method rows: words 0 to 3 of each current row.
REALmethodDefinitionV9* OlderMethods(const void* table, REALword count) {
  if (table == nullptr) return nullptr;
  auto* rows = NewTable<REALmethodDefinitionV9>(count);
  if (rows == nullptr) return nullptr;
  const auto* from = static_cast<const REALmethodDefinition*>(table);
  for (REALword i = 0; i < count; ++i) {
    rows[i] = {from[i].function, from[i].setterFunction, from[i].declaration, from[i].mFlags};
  }
  return rows;
}

// Older event rows; word 1 of each current row then points at its older row, as the older
// hosts expect.
REALeventV9* OlderEvents(void* table, REALword count) {
  auto* rows = NewTable<REALeventV9>(count);
  if (rows == nullptr || table == nullptr) return rows;
  auto* from = static_cast<REALevent*>(table);
  for (REALword i = 0; i < count; ++i) {
    rows[i] = {from[i].declaration, from[i].forSystemUse};
    from[i].forSystemUse = reinterpret_cast<REALword>(&rows[i]);
  }
  return rows;
}

REALconstantV9* OlderConstants(const void* table, REALword count) {
  auto* rows = NewTable<REALconstantV9>(count);
  if (rows == nullptr || table == nullptr) return rows;
  const auto* from = static_cast<const REALconstant*>(table);
  for (REALword i = 0; i < count; ++i) {
    rows[i] = {from[i].declaration, from[i].reserved1, from[i].reserved2};
  }
  return rows;
}

// Converts `record` to the older layout in place (words 0 to 24) and registers it.
void RegisterOlderLayout(REALclassDefinition* record) {
  // A whole record as the working copy, so every member is within it; only words 0 to 24 are
  // written, and only those are copied back.
  auto* older = static_cast<REALclassDefinition*>(std::calloc(1, sizeof(REALclassDefinition)));
  if (older == nullptr) return;
  older->version = 9;
  older->name = record->name;
  older->superName = record->superName;
  older->dataSize = record->dataSize;
  older->forSystemUse = record->forSystemUse;
  older->constructor = record->constructor;
  older->destructor = record->destructor;
  older->properties =
      FixProperties(static_cast<const REALproperty*>(record->properties), record->propertyCount);
  older->propertyCount = record->propertyCount;
  older->methods = OlderMethods(record->methods, record->methodCount);
  older->methodCount = record->methodCount;
  older->events = OlderEvents(record->events, record->eventCount);
  older->eventCount = record->eventCount;
  older->eventInstances = record->eventInstances;
  older->eventInstanceCount = record->eventInstanceCount;
  older->interfaces = record->interfaces;
  older->bindings = nullptr;
  older->bindingCount = 0;
  older->constants = OlderConstants(record->constants, record->constantCount);
  older->constantCount = record->constantCount;
  older->mFlags = record->mFlags;
  older->sharedMethods = OlderMethods(record->sharedMethods, record->sharedMethodCount);
  older->sharedMethodCount = record->sharedMethodCount;
  older->sharedProperties = FixProperties(
      static_cast<const REALproperty*>(record->sharedProperties), record->sharedPropertyCount);
  older->sharedPropertyCount = record->sharedPropertyCount;

  std::memcpy(record, older, kREALclassDefinitionV9Words * sizeof(REALword));
  REALRegisterClassExtension(record);
  std::free(older);
}

}  // namespace

int32_t InterfaceVersionForHost(double hostVersion) {
  if (hostVersion >= 2013.03) return 12;
  if (hostVersion >= 2013.0) return 11;
  if (hostVersion >= 2012.0) return 10;
  return 9;
}

REALword FixFlagWord(REALword flags, double hostVersion) {
  if (hostVersion >= 2010.029 && (flags & 0xC0000) != 0) {
    if (flags & 0x40000) flags |= 0x4;
    if (flags & 0x80000) flags |= 0x8;
  }
  return flags & ~kFlagBitsRemoved;
}

void FixClassFlags(REALclassDefinition* record, double hostVersion) {
  record->mFlags = FixFlagWord(record->mFlags, hostVersion);
  FixRowFlags<REALmethodDefinition>(record->methods, record->methodCount, hostVersion);
  FixRowFlags<REALmethodDefinition>(record->sharedMethods, record->sharedMethodCount, hostVersion);
  FixRowFlags<REALproperty>(record->properties, record->propertyCount, hostVersion);
  FixRowFlags<REALproperty>(record->sharedProperties, record->sharedPropertyCount, hostVersion);
}

REALpropertyV9* FixProperties(const REALproperty* properties, REALword count) {
  if (properties == nullptr || count == 0) return nullptr;
  auto* rows = NewTable<REALpropertyV9>(count);
  if (rows == nullptr) return nullptr;
  for (REALword i = 0; i < count; ++i)
    std::memcpy(&rows[i], &properties[i], sizeof(REALpropertyV9));
  return rows;
}

void RegisterClassRecord(REALclassDefinition* record, int32_t interfaceVersion) {
  if (interfaceVersion > 9) {
    record->version = interfaceVersion;
    REALRegisterClassExtension(record);
  } else {
    RegisterOlderLayout(record);
  }
}
