// The host's record of what modules asked of it: every service call, every lookup through the
// resolver and every method a module loaded and called, in the order they happened, with their
// arguments and results. Tests read it as a list and print it in failure messages.
#pragma once

#include <cstdint>
#include <functional>
#include <ostream>
#include <string>
#include <vector>

namespace qpxhost {

class HostObject;

// One call. Objects are named by the serial number the host gave them when it made them
// (`#7`), nil by `nil`; numbers, flags, sizes and texts appear as the module passed them.
struct HostCall {
  enum class Kind {
    Lookup,   // the resolver asked for `name`; `result` is "found" or "missing"
    Service,  // a service bound by `name` was called
    Method,   // a host method a module loaded (by `name`, the short form of its declaration)
    Host,     // the host itself calling a module's method ("call ScaleQPX") and its return
  };
  Kind kind = Kind::Service;
  std::string name;
  std::vector<std::string> arguments;
  std::string result;  // empty for calls without a result
  // Serial numbers of the objects among the arguments, in order (0 for nil).
  std::vector<uint64_t> objects;
  // Serial number of the object the call returned (0: none, or nil).
  uint64_t resultObject = 0;

  // "name(arg, arg) -> result".
  std::string ToString() const;
};

// An object's name in the log: "#serial", or "nil".
std::string ObjectName(const HostObject* object);
std::string ObjectName(uint64_t serial);

class CallLog {
 public:
  // A host that runs for long (a benchmark, a batch) may keep no log.
  void Enable(bool enabled) { enabled_ = enabled; }
  bool enabled() const { return enabled_; }
  void Add(HostCall call) {
    if (enabled_) calls_.push_back(std::move(call));
  }
  const std::vector<HostCall>& calls() const { return calls_; }
  HostCall& At(size_t index) { return calls_.at(index); }
  size_t size() const { return calls_.size(); }
  void Clear() { calls_.clear(); }

  // The calls from index `from` on, without resolver lookups, each as ToString().
  std::vector<std::string> Lines(size_t from = 0) const;
  // Those of the lines that `keep` keeps.
  std::vector<std::string> Lines(const std::function<bool(const HostCall&)>& keep,
                                 size_t from = 0) const;
  // Every call from `from` on, lookups included, one a line, numbered: for failure messages.
  std::string Print(size_t from = 0) const;

 private:
  std::vector<HostCall> calls_;
  bool enabled_ = true;
};

std::ostream& operator<<(std::ostream& out, const HostCall& call);

}  // namespace qpxhost
