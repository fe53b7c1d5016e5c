#include "call_log.h"

#include "host_object.h"

namespace qpxhost {

std::string ObjectName(uint64_t serial) {
  if (serial == 0) return "nil";
  std::string name = "#";
  name += std::to_string(serial);
  return name;
}

std::string ObjectName(const HostObject* object) {
  return ObjectName(object == nullptr ? 0 : object->serial());
}

std::string HostCall::ToString() const {
  std::string text;
  if (kind == Kind::Lookup) {
    text += "lookup ";
    text += name;
  } else {
    text += name;
    text += "(";
    for (size_t i = 0; i < arguments.size(); ++i) {
      if (i > 0) text += ", ";
      text += arguments[i];
    }
    text += ")";
  }
  if (!result.empty()) {
    text += " -> ";
    text += result;
  }
  return text;
}

std::vector<std::string> CallLog::Lines(const std::function<bool(const HostCall&)>& keep,
                                        size_t from) const {
  std::vector<std::string> lines;
  for (size_t i = from; i < calls_.size(); ++i) {
    if (calls_[i].kind != HostCall::Kind::Lookup && keep(calls_[i])) {
      lines.push_back(calls_[i].ToString());
    }
  }
  return lines;
}

std::vector<std::string> CallLog::Lines(size_t from) const {
  return Lines([](const HostCall&) { return true; }, from);
}

std::string CallLog::Print(size_t from) const {
  std::string text;
  for (size_t i = from; i < calls_.size(); ++i) {
    text += std::to_string(i) + ": " + calls_[i].ToString() + "\n";
  }
  return text;
}

std::ostream& operator<<(std::ostream& out, const HostCall& call) {
  return out << call.ToString();
}

}  // namespace qpxhost
