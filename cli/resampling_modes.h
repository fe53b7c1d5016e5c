// The resampling modes of ScalingQPX as qpx names them: a mode number and a short name for the
// command line, and what the kernel is for help texts and the contact sheet.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>

namespace qpx {

struct ResamplingMode {
  int32_t number;      // ScalingQPX's mode argument
  const char* name;    // e.g. "lanczos3"
  const char* kernel;  // e.g. "Lanczos, 3 lobes"
};

// Modes 1 to 7, in order.
std::span<const ResamplingMode> ResamplingModes();

// The mode `number` names, or null for a number outside 1 to 7.
const ResamplingMode* FindResamplingMode(int32_t number);

// A mode given by name (any case) or by a whole number. Any whole number in the 32-bit range is
// taken, also one outside 1 to 7, so that the method's own answer to it can be seen.
std::optional<int32_t> ParseResamplingMode(const std::string& text);

// "triangle, box, ...": the names of modes 1 to 7.
std::string ResamplingModeNames();
// One line per mode: its number, name and kernel, indented for a help text.
std::string ResamplingModeTable();

}  // namespace qpx
