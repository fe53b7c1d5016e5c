// Wrappers of the host services. Each binds its service by name on first use and caches it
// for the life of the process; a service the host lacks is looked up again on the next call,
// and meanwhile the wrapper does nothing and returns a neutral result (null, 0 or false).
#pragma once

#include <cstdint>

#include "REALplugin.h"

void REALLockObject(REALobject object);
void REALUnlockObject(REALobject object);
REALstring REALBuildString(const char* text, int32_t length);
void REALSetStringEncoding(REALstring string, uint32_t encoding);
void REALUnlockString(REALstring string);
REALobject REALnewInstance(const char* className);
bool REALSetPropValueString(REALobject object, const char* propName, REALstring value);
void REALRaiseException(REALobject exception);
void REALYieldToRB();
REALclassRef REALGetClassRef(const char* className);
bool REALGetPropValueInt32(REALobject object, const char* propName, int32_t* value);
bool REALGetPropValueUInt8(REALobject object, const char* propName, uint8_t* value);
void* REALLoadObjectMethod(REALobject object, const char* declaration);
REALpicture REALNewPicture(int32_t width, int32_t height, int32_t depth);
REALgraphics REALGetPictureGraphics(REALpicture picture);
REALpicture REALGetPictureMask(REALpicture picture, bool create);
bool REALLockPictureDescription(REALpicture picture, REALpictureDescription* description,
                                uint32_t pictureType);
void REALUnlockPictureDescription(REALpicture picture);
void REALPictureClearCache(REALpicture picture);
REALpicture REALBuildPictureFromBuffer(int32_t width, int32_t height, RBPixelType type,
                                       void* buffer, int32_t rowBytes);
void REALRegisterClassExtension(REALclassDefinition* definition);

// Host pictures and graphics objects are host objects.
inline REALobject AsObject(REALpicture picture) {
  return reinterpret_cast<REALobject>(picture);
}
