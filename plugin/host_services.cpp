#include "host_services.h"

#include "globals.h"

namespace {

// Returns the cached service, looking it up first when it has not been found yet.
template <typename Fn>
Fn Bind(Fn& cache, const char* serviceName) {
  if (cache == nullptr && gResolver != nullptr) {
    cache = reinterpret_cast<Fn>(gResolver(serviceName));
  }
  return cache;
}

REALLockObjectFn lockObject;
REALUnlockObjectFn unlockObject;
REALBuildStringFn buildString;
REALSetStringEncodingFn setStringEncoding;
REALUnlockStringFn unlockString;
REALnewInstanceFn newInstance;
REALSetPropValueStringFn setPropValueString;
REALRaiseExceptionFn raiseException;
REALYieldToRBFn yieldToRB;
REALGetClassRefFn getClassRef;
REALGetPropValueInt32Fn getPropValueInt32;
REALGetPropValueUInt8Fn getPropValueUInt8;
REALLoadObjectMethodFn loadObjectMethod;
REALNewPictureFn newPicture;
REALGetPictureGraphicsFn getPictureGraphics;
REALGetPictureMaskFn getPictureMask;
REALLockPictureDescriptionFn lockPictureDescription;
REALUnlockPictureDescriptionFn unlockPictureDescription;
REALPictureClearCacheFn pictureClearCache;
REALBuildPictureFromBufferFn buildPictureFromBuffer;
REALRegisterClassExtensionFn registerClassExtension;

}  // namespace

void REALLockObject(REALobject object) {
  if (auto fn = Bind(lockObject, "REALLockObject")) fn(object);
}

void REALUnlockObject(REALobject object) {
  if (auto fn = Bind(unlockObject, "REALUnlockObject")) fn(object);
}

REALstring REALBuildString(const char* text, int32_t length) {
  auto fn = Bind(buildString, "REALBuildString");
  return fn ? fn(text, length) : nullptr;
}

void REALSetStringEncoding(REALstring string, uint32_t encoding) {
  if (auto fn = Bind(setStringEncoding, "REALSetStringEncoding")) fn(string, encoding);
}

void REALUnlockString(REALstring string) {
  if (auto fn = Bind(unlockString, "REALUnlockString")) fn(string);
}

REALobject REALnewInstance(const char* className) {
  auto fn = Bind(newInstance, "PluginNewInstance");
  return fn ? fn(className) : nullptr;
}

bool REALSetPropValueString(REALobject object, const char* propName, REALstring value) {
  auto fn = Bind(setPropValueString, "REALSetPropValueString");
  return fn ? fn(object, propName, value) : false;
}

void REALRaiseException(REALobject exception) {
  if (auto fn = Bind(raiseException, "RuntimeRaiseException")) fn(exception);
}

void REALYieldToRB() {
  if (auto fn = Bind(yieldToRB, "REALYieldToRB")) fn();
}

REALclassRef REALGetClassRef(const char* className) {
  auto fn = Bind(getClassRef, "pluginObjectType");
  return fn ? fn(className) : nullptr;
}

bool REALGetPropValueInt32(REALobject object, const char* propName, int32_t* value) {
  auto fn = Bind(getPropValueInt32, "REALGetPropValueInt");
  return fn ? fn(object, propName, value) : false;
}

bool REALGetPropValueUInt8(REALobject object, const char* propName, uint8_t* value) {
  auto fn = Bind(getPropValueUInt8, "REALGetPropValueBool");
  return fn ? fn(object, propName, value) : false;
}

void* REALLoadObjectMethod(REALobject object, const char* declaration) {
  auto fn = Bind(loadObjectMethod, "REALLoadObjectMethod");
  return fn ? fn(object, declaration) : nullptr;
}

REALpicture REALNewPicture(int32_t width, int32_t height, int32_t depth) {
  auto fn = Bind(newPicture, "newPicture");
  return fn ? fn(width, height, depth) : nullptr;
}

REALgraphics REALGetPictureGraphics(REALpicture picture) {
  auto fn = Bind(getPictureGraphics, "pluginPictureGraphicsGetter");
  return fn ? fn(picture) : nullptr;
}

REALpicture REALGetPictureMask(REALpicture picture, bool create) {
  auto fn = Bind(getPictureMask, "REALGetPictureMask");
  return fn ? fn(picture, create) : nullptr;
}

bool REALLockPictureDescription(REALpicture picture, REALpictureDescription* description,
                                uint32_t pictureType) {
  auto fn = Bind(lockPictureDescription, "REALLockPictureDescription");
  return fn ? fn(picture, description, pictureType) : false;
}

void REALUnlockPictureDescription(REALpicture picture) {
  if (auto fn = Bind(unlockPictureDescription, "unlockPictureDescription")) fn(picture);
}

void REALPictureClearCache(REALpicture picture) {
  if (auto fn = Bind(pictureClearCache, "REALPictureClearCache")) fn(picture);
}

REALpicture REALBuildPictureFromBuffer(int32_t width, int32_t height, RBPixelType type,
                                       void* buffer, int32_t rowBytes) {
  auto fn = Bind(buildPictureFromBuffer, "REALBuildPictureFromBuffer");
  return fn ? fn(width, height, type, buffer, rowBytes) : nullptr;
}

void REALRegisterClassExtension(REALclassDefinition* definition) {
  if (auto fn = Bind(registerClassExtension, "PluginRegisterClassExtension")) fn(definition);
}
