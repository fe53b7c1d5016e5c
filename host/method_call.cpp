// Calling a registered method through its function pointer with the C signature its
// declaration implies: the receiver, then each parameter (picture as a pointer, integer as a
// 32-bit signed value, boolean as one byte, double as a 64-bit float).
#include <ffi.h>

#include <cstdio>
#include <stdexcept>

#include "host.h"

namespace qpxhost {
namespace {

ffi_type* FfiType(ValueType type) {
  switch (type) {
    case ValueType::Picture:
      return &ffi_type_pointer;
    case ValueType::Integer:
      return &ffi_type_sint32;
    case ValueType::Boolean:
      return &ffi_type_uint8;
    case ValueType::Double:
      return &ffi_type_double;
  }
  return nullptr;
}

// One argument in the storage its C type needs.
struct Slot {
  void* pointer = nullptr;
  int32_t integer = 0;
  uint8_t boolean = 0;
  double number = 0;
  void* Address(ValueType type) {
    switch (type) {
      case ValueType::Picture:
        return &pointer;
      case ValueType::Integer:
        return &integer;
      case ValueType::Boolean:
        return &boolean;
      case ValueType::Double:
        return &number;
    }
    return nullptr;
  }
};

void Store(Slot& slot, const Parameter& parameter, const Value& value, const std::string& method) {
  auto wrong = [&] {
    return std::invalid_argument(method + ": argument '" + parameter.name + "' must be " +
                                 ValueTypeName(parameter.type));
  };
  switch (parameter.type) {
    case ValueType::Picture:
      if (!std::holds_alternative<HostObject*>(value)) throw wrong();
      slot.pointer = std::get<HostObject*>(value);
      break;
    case ValueType::Integer:
      if (!std::holds_alternative<int32_t>(value)) throw wrong();
      slot.integer = std::get<int32_t>(value);
      break;
    case ValueType::Boolean:
      if (!std::holds_alternative<bool>(value)) throw wrong();
      slot.boolean = std::get<bool>(value) ? 1 : 0;
      break;
    case ValueType::Double:
      if (std::holds_alternative<double>(value)) {
        slot.number = std::get<double>(value);
      } else if (std::holds_alternative<int32_t>(value)) {
        slot.number = std::get<int32_t>(value);
      } else {
        throw wrong();
      }
      break;
  }
}

// An argument as the call log shows it.
std::string ArgumentText(const Host& host, const Value& value) {
  if (const auto* object = std::get_if<HostObject*>(&value)) return host.NameOf(*object);
  if (const auto* integer = std::get_if<int32_t>(&value)) return std::to_string(*integer);
  if (const auto* boolean = std::get_if<bool>(&value)) return *boolean ? "True" : "False";
  char text[32];
  std::snprintf(text, sizeof text, "%.17g", std::get<double>(value));
  return text;
}

}  // namespace

CallResult Host::Call(const std::string& name, HostObject* self, std::vector<Value> arguments) {
  const std::optional<RegisteredMethod> method = FindMethod("Picture", name);
  if (!method) throw std::invalid_argument("no registered method '" + name + "'");
  const Declaration& declaration = method->declaration;
  const size_t count = declaration.parameters.size();
  if (arguments.size() > count) throw std::invalid_argument(name + ": too many arguments");
  for (size_t i = arguments.size(); i < count; ++i) {
    const Parameter& parameter = declaration.parameters[i];
    if (!parameter.defaultValue) {
      throw std::invalid_argument(name + ": missing argument '" + parameter.name + "'");
    }
    arguments.push_back(*parameter.defaultValue);
  }

  std::vector<Slot> slots(count + 1);
  std::vector<ffi_type*> types(count + 1);
  std::vector<void*> values(count + 1);
  slots[0].pointer = self;
  types[0] = &ffi_type_pointer;
  values[0] = &slots[0].pointer;
  for (size_t i = 0; i < count; ++i) {
    const Parameter& parameter = declaration.parameters[i];
    Store(slots[i + 1], parameter, arguments[i], name);
    types[i + 1] = FfiType(parameter.type);
    values[i + 1] = slots[i + 1].Address(parameter.type);
  }

  ffi_type* resultType = &ffi_type_void;
  if (declaration.result) resultType = FfiType(*declaration.result);
  ffi_cif cif;
  if (ffi_prep_cif(&cif, FFI_DEFAULT_ABI, static_cast<unsigned>(count + 1), resultType,
                   types.data()) != FFI_OK) {
    throw std::invalid_argument(name + ": cannot prepare the call");
  }
  // Results narrower than a register come back widened to ffi_arg.
  union {
    ffi_arg integer;
    void* pointer;
    double number;
  } result{};
  std::vector<std::string> shown;
  for (const Value& argument : arguments) shown.push_back(ArgumentText(*this, argument));
  LogCall(HostCall::Kind::Host, "call " + name, {self}, std::move(shown));
  ffi_call(&cif, method->function, &result, values.data());

  CallResult out;
  std::string returned;
  if (declaration.result == ValueType::Picture) {
    out.picture = static_cast<HostObject*>(result.pointer);
    if (out.picture != nullptr && !IsLive(out.picture)) {
      ReportProblem(name + ": returned a picture that is not a live host object");
    }
    returned = NameOf(out.picture);
  } else if (declaration.result == ValueType::Boolean) {
    out.boolean = static_cast<uint8_t>(result.integer) != 0;
    returned = out.boolean ? "True" : "False";
  }
  SetResult(LogCall(HostCall::Kind::Host, "return " + name, {}), std::move(returned));
  return out;
}

}  // namespace qpxhost
