// Services for objects, strings, exceptions, classes, properties, yielding and registration.
// Each runs against the booted host.
#include "services.h"

#include <cstring>
#include <map>

#include "host.h"
#include "picture_services.h"

namespace qpxhost {
namespace {

Host& H() {
  return *Host::Current();
}

void LockObject(REALobject object) {
  if (object == nullptr) return;
  if (HostObject* found = H().Find(object, "REALLockObject")) H().Lock(found);
}

void UnlockObject(REALobject object) {
  if (object == nullptr) return;
  if (HostObject* found = H().Find(object, "REALUnlockObject")) H().Unlock(found);
}

REALstring BuildString(const char* text, int32_t length) {
  if (text == nullptr || length < 0) return nullptr;
  auto* string = H().Adopt(std::make_unique<HostString>(std::string(text, length)));
  return reinterpret_cast<REALstring>(static_cast<HostObject*>(string));
}

HostString* AsString(const void* reference, const char* service) {
  auto* string = dynamic_cast<HostString*>(H().Find(reference, service));
  if (string == nullptr && reference != nullptr)
    H().ReportProblem(std::string(service) + ": not a string");
  return string;
}

void SetStringEncoding(REALstring string, uint32_t encoding) {
  if (HostString* found = AsString(string, "REALSetStringEncoding")) found->encoding = encoding;
}

void UnlockString(REALstring string) {
  if (HostString* found = AsString(string, "REALUnlockString")) H().Unlock(found);
}

REALobject NewInstance(const char* className) {
  if (className == nullptr || H().Lacks(className)) return nullptr;
  const std::string name(className);
  HostObject* made = nullptr;
  if (name == "NilObjectException" || name == "RuntimeException") {
    made = H().Adopt(std::make_unique<HostException>(name));
  } else {
    made = NewPictureInstance(H(), name);
  }
  return reinterpret_cast<REALobject>(made);
}

bool SetPropValueString(REALobject object, const char* propName, REALstring value) {
  auto* exception = dynamic_cast<HostException*>(H().Find(object, "REALSetPropValueString"));
  if (exception == nullptr || propName == nullptr || std::strcmp(propName, "Message") != 0) {
    return false;
  }
  HostString* text = nullptr;
  if (value != nullptr) {
    text = AsString(value, "REALSetPropValueString");
    if (text == nullptr) return false;
    H().Lock(text);
  }
  if (exception->message != nullptr) H().Unlock(exception->message);
  exception->message = text;
  return true;
}

void RaiseException(REALobject object) {
  auto* exception = dynamic_cast<HostException*>(H().Find(object, "RuntimeRaiseException"));
  if (exception == nullptr) return;
  RaisedException raised{exception->className(), std::nullopt, 0};
  if (exception->message != nullptr) {
    raised.message = exception->message->text;
    raised.messageEncoding = exception->message->encoding;
  }
  H().raisedExceptions.push_back(std::move(raised));
}

void YieldToRB() {
  Host& host = H();
  ++host.yieldCount;
  if (host.onYield) host.onYield();
}

// Class references are stable addresses, one per class the application has.
REALclassRef GetClassRef(const char* className) {
  static const std::map<std::string, int> classes = {
      {"Application", 0}, {"ConsoleApplication", 1}, {"WebApplication", 2},
      {"Picture", 3},     {"NilObjectException", 4}, {"RuntimeException", 5}};
  static char refs[6];
  if (className == nullptr || H().Lacks(className)) return nullptr;
  auto it = classes.find(className);
  if (it == classes.end()) return nullptr;
  const AppKind app = H().config().app;
  if ((it->first == "Application" && app != AppKind::Desktop) ||
      (it->first == "ConsoleApplication" && app != AppKind::Console) ||
      (it->first == "WebApplication" && app != AppKind::Web)) {
    return nullptr;
  }
  return reinterpret_cast<REALclassRef>(&refs[it->second]);
}

double GetRBVersion() {
  return H().config().version.value_or(0.0);
}

void RegisterPluginVersion(int32_t version) {
  H().reportedInterfaceVersion = version;
}

void RegisterClassExtension(REALclassDefinition* definition) {
  if (definition == nullptr) return;
  H().registeredClasses.push_back(DecodeClassDefinition(*definition));
}

}  // namespace

void* FindService(const std::string& serviceName) {
  static const std::map<std::string, void*> services = {
      {"REALLockObject", reinterpret_cast<void*>(&LockObject)},
      {"REALUnlockObject", reinterpret_cast<void*>(&UnlockObject)},
      {"REALBuildString", reinterpret_cast<void*>(&BuildString)},
      {"REALSetStringEncoding", reinterpret_cast<void*>(&SetStringEncoding)},
      {"REALUnlockString", reinterpret_cast<void*>(&UnlockString)},
      {"PluginNewInstance", reinterpret_cast<void*>(&NewInstance)},
      {"REALSetPropValueString", reinterpret_cast<void*>(&SetPropValueString)},
      {"RuntimeRaiseException", reinterpret_cast<void*>(&RaiseException)},
      {"REALYieldToRB", reinterpret_cast<void*>(&YieldToRB)},
      {"pluginObjectType", reinterpret_cast<void*>(&GetClassRef)},
      {"REALGetRBVersion", reinterpret_cast<void*>(&GetRBVersion)},
      {"RegisterPluginVersion", reinterpret_cast<void*>(&RegisterPluginVersion)},
      {"PluginRegisterClassExtension", reinterpret_cast<void*>(&RegisterClassExtension)},
  };
  auto it = services.find(serviceName);
  if (it != services.end()) return it->second;
  return FindPictureService(serviceName);
}

}  // namespace qpxhost
