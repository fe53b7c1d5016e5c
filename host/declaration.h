// Method declarations in the host's syntax, such as
// "BlurQPX(Radius as double, yield as integer = 0) as picture".
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace qpxhost {

class HostObject;

enum class ValueType { Picture, Integer, Boolean, Double };

// A value passed to or returned from a method: a picture (nullptr is nil), a 32-bit integer,
// a boolean or a double.
using Value = std::variant<HostObject*, int32_t, bool, double>;

struct Parameter {
  std::string name;
  ValueType type;
  std::optional<Value> defaultValue;
};

struct Declaration {
  std::string name;
  std::vector<Parameter> parameters;
  std::optional<ValueType> result;  // nullopt: a method without result
};

// Throws std::invalid_argument for text that is not a declaration of supported types.
Declaration ParseDeclaration(std::string_view text);

const char* ValueTypeName(ValueType type);

}  // namespace qpxhost
