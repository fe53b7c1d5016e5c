// Objects of the emulated host: reference-counted, tracked in the host's ledger.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace qpxhost {

class HostObject {
 public:
  explicit HostObject(std::string className) : className_(std::move(className)) {}
  virtual ~HostObject() = default;
  HostObject(const HostObject&) = delete;
  HostObject& operator=(const HostObject&) = delete;

  const std::string& className() const { return className_; }
  // The host's serial number for the object, 1 for the first it made; how the call log names it.
  uint64_t serial() const { return serial_; }
  void SetSerial(uint64_t serial) { serial_ = serial; }
  // Objects this one holds a reference to; the host releases them when this one dies.
  virtual std::vector<HostObject*> HeldReferences() const { return {}; }

 private:
  std::string className_;
  uint64_t serial_ = 0;
};

// A host string: bytes with an encoding code.
class HostString : public HostObject {
 public:
  static constexpr uint32_t kUTF8 = 0x08000100;
  explicit HostString(std::string text) : HostObject("String"), text(std::move(text)) {}
  std::string text;
  uint32_t encoding = kUTF8;
};

// "NilObjectException", "RuntimeException": a settable "Message".
class HostException : public HostObject {
 public:
  using HostObject::HostObject;
  HostString* message = nullptr;  // one reference held
  std::vector<HostObject*> HeldReferences() const override {
    if (message == nullptr) return {};
    return {message};
  }
};

}  // namespace qpxhost
