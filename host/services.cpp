// Services for objects, strings, exceptions, classes, properties, yielding and registration.
// Each runs against the booted host.
#include "services.h"

#include <cstdio>
#include <cstring>
#include <map>

#include "host.h"
#include "picture_services.h"

namespace qpxhost {
namespace {

Host& H() {
  return *Host::Current();
}

REALclassRef ClassRef(const char* className);

void LockObject(REALobject object) {
  LogService("REALLockObject", {object});
  if (object == nullptr) return;
  if (HostObject* found = H().Find(object, "REALLockObject")) H().Lock(found);
}

void UnlockObject(REALobject object) {
  LogService("REALUnlockObject", {object});
  if (object == nullptr) return;
  if (HostObject* found = H().Find(object, "REALUnlockObject")) H().Unlock(found);
}

REALstring BuildString(const char* text, int32_t length) {
  const size_t at =
      LogService("REALBuildString", {},
                 {text == nullptr || length < 0 ? "nil" : '"' + std::string(text, length) + '"',
                  std::to_string(length)});
  if (text == nullptr || length < 0) {
    LogResult(at, nullptr);
    return nullptr;
  }
  auto* string = H().Adopt(std::make_unique<HostString>(std::string(text, length)));
  LogResult(at, string);
  return reinterpret_cast<REALstring>(static_cast<HostObject*>(string));
}

HostString* AsString(const void* reference, const char* service) {
  auto* string = dynamic_cast<HostString*>(H().Find(reference, service));
  if (string == nullptr && reference != nullptr)
    H().ReportProblem(std::string(service) + ": not a string");
  return string;
}

void SetStringEncoding(REALstring string, uint32_t encoding) {
  char code[16];
  std::snprintf(code, sizeof code, "0x%04X", encoding);
  LogService("REALSetStringEncoding", {string}, {code});
  if (HostString* found = AsString(string, "REALSetStringEncoding")) found->encoding = encoding;
}

void UnlockString(REALstring string) {
  LogService("REALUnlockString", {string});
  if (HostString* found = AsString(string, "REALUnlockString")) H().Unlock(found);
}

REALobject NewInstance(const char* className) {
  const size_t at = LogService("PluginNewInstance", {}, {Quoted(className)});
  if (className == nullptr || H().Lacks(className)) {
    LogResult(at, nullptr);
    return nullptr;
  }
  const std::string name(className);
  HostObject* made = nullptr;
  if (name == "NilObjectException" || name == "RuntimeException") {
    made = H().Adopt(std::make_unique<HostException>(name));
  } else {
    made = NewPictureInstance(H(), name);
  }
  LogResult(at, made);
  return reinterpret_cast<REALobject>(made);
}

bool SetPropValueString(REALobject object, const char* propName, REALstring value) {
  LogService("REALSetPropValueString", {object, value}, {Quoted(propName)});
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
  LogService("RuntimeRaiseException", {object});
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
  LogService("REALYieldToRB", {});
  Host& host = H();
  ++host.yieldCount;
  if (host.onYield) host.onYield();
}

// Class references are stable addresses, one per class the application has.
REALclassRef GetClassRef(const char* className) {
  const size_t at = LogService("pluginObjectType", {}, {Quoted(className)});
  const REALclassRef found = ClassRef(className);
  LogResult(at, found != nullptr);
  return found;
}

REALclassRef ClassRef(const char* className) {
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
  const double version = H().config().version.value_or(0.0);
  LogNumber(LogService("REALGetRBVersion", {}), version);
  return version;
}

void RegisterPluginVersion(int32_t version) {
  LogService("RegisterPluginVersion", {}, {std::to_string(version)});
  H().reportedInterfaceVersion = version;
}

// The host keeps the record itself, not a copy: it reads the module's record and tables
// whenever it looks a method up, for the life of the process.
void RegisterClassExtension(REALclassDefinition* definition) {
  char address[32];
  std::snprintf(address, sizeof address, "%p", static_cast<void*>(definition));
  LogService("PluginRegisterClassExtension", {}, {address});
  if (definition != nullptr) H().Register(definition);
}

}  // namespace

std::string Quoted(const char* text) {
  return text == nullptr ? "nil" : '"' + std::string(text) + '"';
}

size_t LogService(const char* name, std::vector<const void*> objects, std::vector<std::string> more,
                  HostCall::Kind kind) {
  return H().LogCall(kind, name, std::move(objects), std::move(more));
}

void LogResult(size_t index, bool result) {
  H().SetResult(index, result ? "true" : "false");
}

void LogResult(size_t index, const void* object) {
  H().SetResultObject(index, object);
}

void LogNumber(size_t index, double result) {
  char text[32];
  std::snprintf(text, sizeof text, "%.17g", result);
  H().SetResult(index, text);
}

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
