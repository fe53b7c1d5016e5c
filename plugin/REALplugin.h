// The host's plug-in interface as this module and the emulated host see it: opaque object
// references, the class-extension record with its row types, the picture description, and the
// signatures of the host services. Every field of the records is one machine word: on a 32-bit
// build they are exactly the 32-bit words the host reads; on 64-bit the same fields are wider.
#pragma once

#include <cstddef>
#include <cstdint>

// Opaque, reference-counted host objects.
struct REALobjectStruct;
struct REALpictureStruct;
struct REALstringStruct;
struct REALclassRefStruct;
using REALobject = REALobjectStruct*;
using REALpicture = REALpictureStruct*;
using REALstring = REALstringStruct*;
using REALclassRef = REALclassRefStruct*;
using REALgraphics = REALobjectStruct*;

// Integer fields of the records: one word wide.
using REALword = intptr_t;

// Current method row (methods and shared methods): 6 words. The flag word is word 3.
struct REALmethodDefinition {
  void (*function)();
  void (*setterFunction)();
  const char* declaration;
  REALword mFlags;
  REALword attributeCount;
  const void* attributes;
};

// Current property row (properties and shared properties): 12 words. The flag word is word 3.
struct REALproperty {
  const char* group;
  const char* name;
  const char* type;
  REALword flags;
  void (*getter)();
  void (*setter)();
  REALword param;
  void (*editor)();
  REALword enumCount;
  const char** enumEntries;
  REALword attributeCount;
  const void* attributes;
};

// Current event row: 4 words.
struct REALevent {
  const char* declaration;
  REALword forSystemUse;
  REALword attributeCount;
  const void* attributes;
};

// Current constant row: 5 words.
struct REALconstant {
  const char* declaration;
  REALword reserved1;
  REALword reserved2;
  REALword attributeCount;
  const void* attributes;
};

// Older rows (interface version 9): the leading words of the current rows.
struct REALmethodDefinitionV9 {
  void (*function)();
  void (*setterFunction)();
  const char* declaration;
  REALword mFlags;
};

struct REALpropertyV9 {
  const char* group;
  const char* name;
  const char* type;
  REALword flags;
  void (*getter)();
  void (*setter)();
  REALword param;
  void (*editor)();
  REALword enumCount;
  const char** enumEntries;
};

struct REALeventV9 {
  const char* declaration;
  REALword forSystemUse;
};

struct REALconstantV9 {
  const char* declaration;
  REALword reserved1;
  REALword reserved2;
};

// The class-extension record: 29 words. Words 0 to 24 have the same meaning in the older
// layout (interface version 9), whose row tables use the V9 rows above.
struct REALclassDefinition {
  REALword version;              // 0
  const char* name;              // 1
  const char* superName;         // 2
  REALword dataSize;             // 3
  REALword forSystemUse;         // 4
  void (*constructor)();         // 5
  void (*destructor)();          // 6
  void* properties;              // 7
  REALword propertyCount;        // 8
  void* methods;                 // 9
  REALword methodCount;          // 10
  void* events;                  // 11
  REALword eventCount;           // 12
  void* eventInstances;          // 13
  REALword eventInstanceCount;   // 14
  const char* interfaces;        // 15
  void* bindings;                // 16
  REALword bindingCount;         // 17
  void* constants;               // 18
  REALword constantCount;        // 19
  REALword mFlags;               // 20
  void* sharedProperties;        // 21
  REALword sharedPropertyCount;  // 22
  void* sharedMethods;           // 23
  REALword sharedMethodCount;    // 24
  REALword reserved[4];          // 25 to 28
};

// Number of leading words the older layout uses.
constexpr size_t kREALclassDefinitionV9Words = 25;

// Filled by "REALLockPictureDescription".
struct REALpictureDescription {
  REALword pictureType;
  void* pictureData;
  REALword width;
  REALword height;
};

// Picture types requested from "REALLockPictureDescription".
constexpr uint32_t kPictureTypeBitmapContext = 8;
constexpr uint32_t kPictureTypeConsole = 10;

// Console and web pictures: the record that a type-10 description points at is read as
// pointer-sized slots.
constexpr size_t kConsoleRecordWidthSlot = 1;
constexpr size_t kConsoleRecordHeightSlot = 2;
constexpr size_t kConsoleRecordRowTableFlagSlot = 1806;
constexpr size_t kConsoleRecordRowTableSlot = 1807;
constexpr size_t kConsoleRecordSlots = 1808;

using RBPixelType = int32_t;
constexpr uint32_t kREALEncodingASCII = 0x0600;

// The resolver the host passes to REALPluginMain.
using REALResolver = void* (*)(const char* serviceName);

// Host service signatures.
using REALLockObjectFn = void (*)(REALobject);
using REALUnlockObjectFn = void (*)(REALobject);
using REALBuildStringFn = REALstring (*)(const char* text, int32_t length);
using REALSetStringEncodingFn = void (*)(REALstring, uint32_t encoding);
using REALUnlockStringFn = void (*)(REALstring);
using REALnewInstanceFn = REALobject (*)(const char* className);
using REALSetPropValueStringFn = bool (*)(REALobject, const char* propName, REALstring value);
using REALRaiseExceptionFn = void (*)(REALobject exception);
using REALYieldToRBFn = void (*)();
using REALGetClassRefFn = REALclassRef (*)(const char* className);
using REALGetPropValueInt32Fn = bool (*)(REALobject, const char* propName, int32_t* value);
using REALGetPropValueUInt8Fn = bool (*)(REALobject, const char* propName, uint8_t* value);
using REALLoadObjectMethodFn = void* (*)(REALobject, const char* declaration);
using REALNewPictureFn = REALpicture (*)(int32_t width, int32_t height, int32_t depth);
using REALGetPictureGraphicsFn = REALgraphics (*)(REALpicture);
using REALGetPictureMaskFn = REALpicture (*)(REALpicture, bool create);
using REALLockPictureDescriptionFn = bool (*)(REALpicture, REALpictureDescription* out,
                                              uint32_t pictureType);
using REALUnlockPictureDescriptionFn = void (*)(REALpicture);
using REALPictureClearCacheFn = void (*)(REALpicture);
using REALBuildPictureFromBufferFn = REALpicture (*)(int32_t width, int32_t height,
                                                     RBPixelType type, void* buffer,
                                                     int32_t rowBytes);
using REALRegisterClassExtensionFn = void (*)(REALclassDefinition*);
using RegisterPluginVersionFn = void (*)(int32_t version);
using REALGetRBVersionFn = double (*)();

// The entry point every module exports.
extern "C" void REALPluginMain(REALResolver resolver);

// On a 32-bit build the records have exactly the host's word layout.
#if UINTPTR_MAX == 0xFFFFFFFFu
static_assert(sizeof(REALclassDefinition) == 29 * 4);
static_assert(sizeof(REALmethodDefinition) == 24);
static_assert(sizeof(REALproperty) == 48);
static_assert(sizeof(REALevent) == 16);
static_assert(sizeof(REALconstant) == 20);
static_assert(sizeof(REALmethodDefinitionV9) == 16);
static_assert(sizeof(REALpropertyV9) == 40);
static_assert(sizeof(REALeventV9) == 8);
static_assert(sizeof(REALconstantV9) == 12);
static_assert(sizeof(REALpictureDescription) == 16);
#endif
// On every build each field is one word, so word i is at offset i * sizeof(void*).
static_assert(sizeof(REALclassDefinition) == 29 * sizeof(void*));
static_assert(offsetof(REALclassDefinition, mFlags) == 20 * sizeof(void*));
static_assert(offsetof(REALclassDefinition, sharedMethodCount) == 24 * sizeof(void*));
static_assert(sizeof(REALmethodDefinition) == 6 * sizeof(void*));
static_assert(sizeof(REALproperty) == 12 * sizeof(void*));
static_assert(sizeof(REALmethodDefinitionV9) == 4 * sizeof(void*));
static_assert(sizeof(REALpropertyV9) == 10 * sizeof(void*));
