// The emulated host: the host application's side of the plug-in interface. One host is booted
// at a time; the resolver handed to modules answers from it. Tests, benchmarks and qpx load the
// module through it exactly as the real host does and call the registered methods.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "REALplugin.h"
#include "call_log.h"
#include "declaration.h"
#include "host_config.h"
#include "host_object.h"
#include "registered_class.h"

namespace qpxhost {

class PluginModule;

// An exception a module raised through "RuntimeRaiseException".
struct RaisedException {
  std::string className;
  std::optional<std::string> message;  // nullopt: a nil "Message"
  uint32_t messageEncoding = 0;
};

// What a registered method returned: a picture (one reference now the caller's) or a boolean.
struct CallResult {
  HostObject* picture = nullptr;
  bool boolean = false;
};

class Host {
 public:
  explicit Host(HostConfig config = {});
  ~Host();
  Host(const Host&) = delete;
  Host& operator=(const Host&) = delete;

  // The booted host; null when none is.
  static Host* Current();
  // The resolver passed to REALPluginMain: a service's address by name, null when this host
  // lacks it. Every call is logged.
  static void* Resolve(const char* serviceName);

  const HostConfig& config() const { return config_; }
  bool Lacks(const std::string& name) const { return config_.unavailable.count(name) != 0; }
  void SetUnavailable(const std::string& name, bool unavailable = true);

  // Loads a fresh copy of the module at `path` (its process-wide state starts anew) and calls
  // its REALPluginMain with this host's resolver. Throws std::runtime_error when it cannot.
  void LoadPlugin(const std::string& path);

  // Calls method `name` of the registered class "Picture" on `self`, as the host program
  // would: missing trailing arguments take their declared defaults. Throws
  // std::invalid_argument for an unknown method or arguments of the wrong type.
  CallResult Call(const std::string& name, HostObject* self, std::vector<Value> arguments = {});
  // The method as the module's registered record says now; nullopt when it has none so named.
  std::optional<RegisteredMethod> FindMethod(const std::string& className,
                                             const std::string& name) const;
  // Every class registered, read from the modules' own records as they stand now: like the
  // real host, this one keeps the record it was given and reads it on every use.
  std::vector<RegisteredClass> registeredClasses() const;
  void Register(const REALclassDefinition* record) { registeredRecords_.push_back(record); }
  // The records as modules registered them, kept where the modules keep them.
  const std::vector<const REALclassDefinition*>& registeredRecords() const {
    return registeredRecords_;
  }

  // --- Ledger of host objects ---------------------------------------------------------------
  // Tracks a new object carrying one reference.
  template <typename T>
  T* Adopt(std::unique_ptr<T> object) {
    T* raw = object.get();
    raw->SetSerial(++lastSerial_);
    destroyed_.erase(raw);
    objects_.emplace(raw, Entry{std::move(object), 1});
    return raw;
  }
  void Lock(HostObject* object);
  void Unlock(HostObject* object);
  // The object behind a module's reference, or null (reported as a problem, naming the object
  // when the host made and destroyed it) when it is not live.
  HostObject* Find(const void* reference, const char* service);
  // The live object with that serial number, or null.
  HostObject* FindSerial(uint64_t serial) const;
  // How the log names what a module passed: "#serial" for an object the host made (with
  // " (destroyed)" when it is gone), "nil", or the bare address of anything else.
  std::string NameOf(const void* reference) const;
  uint64_t SerialOf(const void* reference) const;
  bool IsLive(const void* object) const { return objects_.count(const_cast<void*>(object)) != 0; }
  int RefCount(const void* object) const;
  size_t LiveObjectCount() const { return objects_.size(); }
  std::vector<HostObject*> LiveObjects() const;
  // Misuse seen by the host: a service called with an object that is not alive or of the wrong
  // type, a reference dropped from a destroyed object, a picture destroyed with its description
  // still locked, a description unlocked that was not locked (hosts of 2012.0 and later), guard
  // bytes overwritten. host/README.md lists them all. Every test fails on any.
  const std::vector<std::string>& problems() const { return problems_; }
  void ReportProblem(std::string problem);
  // Hands over the problems seen so far and forgets them: for tests that provoke one on purpose.
  std::vector<std::string> TakeProblems();

  // --- The call log --------------------------------------------------------------------------
  CallLog log;
  // Adds a call of a service or loaded method to the log, its objects named; returns its index
  // for SetResult (kNotLogged while the log is off).
  static constexpr size_t kNotLogged = SIZE_MAX;
  size_t LogCall(HostCall::Kind kind, std::string name, std::vector<const void*> objects,
                 std::vector<std::string> more = {});
  void SetResult(size_t index, std::string result);
  void SetResultObject(size_t index, const void* object);

  // --- What modules did -------------------------------------------------------------------
  int LookupCount(const std::string& serviceName) const;
  void ClearLookups() { lookups_.clear(); }
  std::optional<int32_t> reportedInterfaceVersion;
  std::vector<RaisedException> raisedExceptions;
  int yieldCount = 0;
  // Runs at each "REALYieldToRB", as the host's event loop would.
  std::function<void()> onYield;

 private:
  struct Entry {
    std::unique_ptr<HostObject> object;
    int refs;
  };
  void Destroy(HostObject* object);

  HostConfig config_;
  std::unordered_map<void*, Entry> objects_;
  // Addresses of objects destroyed since, with their serial numbers, until reused.
  std::unordered_map<const void*, uint64_t> destroyed_;
  uint64_t lastSerial_ = 0;
  std::vector<const REALclassDefinition*> registeredRecords_;
  std::vector<std::string> problems_;
  std::map<std::string, int> lookups_;
  std::vector<std::unique_ptr<PluginModule>> plugins_;
};

}  // namespace qpxhost
