#include "raise_exception.h"

#include <cstring>

#include "host_services.h"

void RaiseException(const char* className, const char* message, int32_t /*errorNumber*/) {
  REALstring text = nullptr;
  if (message != nullptr) {
    const size_t length = std::strlen(message);
    if (length >= 1 && length <= 2147483646u) {
      text = REALBuildString(message, static_cast<int32_t>(length));
      if (text != nullptr) REALSetStringEncoding(text, kREALEncodingASCII);
    }
  }

  REALobject exception = REALnewInstance(className);
  if (exception == nullptr) exception = REALnewInstance("RuntimeException");
  if (exception != nullptr) {
    REALSetPropValueString(exception, "Message", text);
    REALRaiseException(exception);
    REALUnlockObject(exception);
  }

  if (text != nullptr) REALUnlockString(text);
}
