#include "resampling_modes.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstdio>

namespace qpx {
namespace {

constexpr ResamplingMode kModes[] = {
    {1, "triangle", "triangle (linear interpolation)"},
    {2, "box", "box"},
    {3, "lanczos3", "Lanczos, 3 lobes"},
    {4, "lanczos8", "Lanczos, 8 lobes"},
    {5, "mitchell", "Mitchell-Netravali cubic, B = C = 1/3"},
    {6, "cubic", "cubic convolution, a = -0.75"},
    {7, "cubic6", "six-point cubic convolution"},
};

std::string Lower(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return text;
}

}  // namespace

std::span<const ResamplingMode> ResamplingModes() {
  return kModes;
}

const ResamplingMode* FindResamplingMode(int32_t number) {
  const auto* mode = std::find_if(std::begin(kModes), std::end(kModes),
                                  [number](const ResamplingMode& m) { return m.number == number; });
  return mode == std::end(kModes) ? nullptr : mode;
}

std::optional<int32_t> ParseResamplingMode(const std::string& text) {
  int32_t number = 0;
  const char* end = text.data() + text.size();
  if (const auto [at, error] = std::from_chars(text.data(), end, number);
      !text.empty() && error == std::errc() && at == end) {
    return number;
  }
  const std::string name = Lower(text);
  for (const ResamplingMode& mode : kModes) {
    if (name == mode.name) return mode.number;
  }
  return std::nullopt;
}

std::string ResamplingModeNames() {
  std::string names;
  for (const ResamplingMode& mode : kModes) {
    if (!names.empty()) names += ", ";
    names += mode.name;
  }
  return names;
}

std::string ResamplingModeTable() {
  std::string table;
  for (const ResamplingMode& mode : kModes) {
    char line[100];
    std::snprintf(line, sizeof line, "  %d  %-9s %s\n", mode.number, mode.name, mode.kernel);
    table += line;
  }
  return table;
}

}  // namespace qpx
