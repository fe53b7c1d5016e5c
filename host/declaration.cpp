#include "declaration.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <stdexcept>

namespace qpxhost {
namespace {

std::string_view Trim(std::string_view s) {
  while (!s.empty() && std::isspace(static_cast<unsigned char>(s.front()))) s.remove_prefix(1);
  while (!s.empty() && std::isspace(static_cast<unsigned char>(s.back()))) s.remove_suffix(1);
  return s;
}

std::string Lower(std::string_view s) {
  std::string out(s);
  std::transform(out.begin(), out.end(), out.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return out;
}

[[noreturn]] void Fail(std::string_view text, const char* why) {
  throw std::invalid_argument("bad declaration '" + std::string(text) + "': " + why);
}

// Splits "name as type" at the word "as" (any case).
std::pair<std::string_view, std::string_view> SplitAs(std::string_view text,
                                                      std::string_view whole) {
  const std::string lower = Lower(text);
  const size_t at = lower.find(" as ");
  if (at == std::string::npos) Fail(whole, "missing 'as'");
  return {Trim(text.substr(0, at)), Trim(text.substr(at + 4))};
}

ValueType ParseType(std::string_view text, std::string_view whole) {
  const std::string type = Lower(Trim(text));
  if (type == "picture") return ValueType::Picture;
  if (type == "integer") return ValueType::Integer;
  if (type == "boolean") return ValueType::Boolean;
  if (type == "double") return ValueType::Double;
  Fail(whole, "unsupported type");
}

Value ParseDefault(ValueType type, std::string_view text, std::string_view whole) {
  const std::string literal = Lower(Trim(text));
  switch (type) {
    case ValueType::Boolean:
      if (literal == "true") return true;
      if (literal == "false") return false;
      break;
    case ValueType::Integer:
      return static_cast<int32_t>(std::strtol(literal.c_str(), nullptr, 10));
    case ValueType::Double:
      return std::strtod(literal.c_str(), nullptr);
    case ValueType::Picture:
      if (literal == "nil") return static_cast<HostObject*>(nullptr);
      break;
  }
  Fail(whole, "bad default value");
}

}  // namespace

Declaration ParseDeclaration(std::string_view text) {
  const size_t open = text.find('(');
  const size_t close = text.rfind(')');
  if (open == std::string_view::npos || close == std::string_view::npos || close < open) {
    Fail(text, "missing parameter list");
  }
  Declaration declaration;
  declaration.name = std::string(Trim(text.substr(0, open)));
  if (declaration.name.empty()) Fail(text, "missing name");

  std::string_view list = Trim(text.substr(open + 1, close - open - 1));
  while (!list.empty()) {
    const size_t comma = list.find(',');
    std::string_view item = Trim(list.substr(0, comma));
    list = comma == std::string_view::npos ? std::string_view() : list.substr(comma + 1);

    Parameter parameter;
    std::string_view defaultText;
    if (const size_t equals = item.find('='); equals != std::string_view::npos) {
      defaultText = item.substr(equals + 1);
      item = Trim(item.substr(0, equals));
    }
    auto [name, type] = SplitAs(item, text);
    parameter.name = std::string(name);
    parameter.type = ParseType(type, text);
    if (!defaultText.empty())
      parameter.defaultValue = ParseDefault(parameter.type, defaultText, text);
    declaration.parameters.push_back(std::move(parameter));
  }

  const std::string_view tail = Trim(text.substr(close + 1));
  if (!tail.empty()) {
    if (Lower(tail.substr(0, 3)) != "as ") Fail(text, "bad result");
    declaration.result = ParseType(tail.substr(3), text);
  }
  return declaration;
}

const char* ValueTypeName(ValueType type) {
  switch (type) {
    case ValueType::Picture:
      return "picture";
    case ValueType::Integer:
      return "integer";
    case ValueType::Boolean:
      return "boolean";
    case ValueType::Double:
      return "double";
  }
  return "?";
}

}  // namespace qpxhost
