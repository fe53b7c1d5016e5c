#include "call_sequence.h"

#include <algorithm>

#include "host_picture.h"

namespace qpxtest {

std::string Name(const qpxhost::HostObject* object) {
  return qpxhost::ObjectName(object);
}

std::vector<std::string> Calls(const qpxhost::Host& host, size_t from) {
  return host.log.Lines(from);
}

std::vector<std::string> CallsOf(const qpxhost::Host& host, const std::vector<std::string>& names,
                                 size_t from) {
  return host.log.Lines(
      [&](const qpxhost::HostCall& call) {
        return std::find(names.begin(), names.end(), call.name) != names.end();
      },
      from);
}

::testing::AssertionResult InOrder(const std::vector<std::string>& calls,
                                   const std::vector<std::string>& expected) {
  size_t at = 0;
  for (const std::string& line : expected) {
    while (at < calls.size() && calls[at] != line) ++at;
    if (at == calls.size()) {
      std::string all;
      for (const std::string& call : calls) all += "  " + call + "\n";
      return ::testing::AssertionFailure()
             << "'" << line << "' not found in order among the calls:\n"
             << all;
    }
    ++at;
  }
  return ::testing::AssertionSuccess();
}

qpxhost::HostObject* LastResultOf(const qpxhost::Host& host, const std::string& name, size_t from) {
  const auto& calls = host.log.calls();
  for (size_t i = calls.size(); i > from; --i) {
    const qpxhost::HostCall& call = calls[i - 1];
    if (call.name == name && call.kind != qpxhost::HostCall::Kind::Lookup) {
      return host.FindSerial(call.resultObject);
    }
  }
  return nullptr;
}

int32_t RowsWritten(qpxhost::HostPicture& picture, uint8_t fill) {
  const int fourth = picture.layout == 8 || picture.layout % 2 == 1 ? 3 : 0;
  int32_t rows = 0;
  for (int32_t y = 0; y < picture.height; ++y) {
    const uint8_t* row = picture.Row(y);
    bool written = true;
    for (int32_t x = 0; x < picture.width && written; ++x) written = row[4 * x + fourth] != fill;
    rows += written ? 1 : 0;
  }
  return rows;
}

}  // namespace qpxtest
