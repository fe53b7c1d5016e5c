// "qpx convert", "qpx blur", "qpx scale", "qpx scale-mask", "qpx resample" and "qpx draw": image
// files through host pictures, and optionally one of the module's methods, into a PNG file.
#pragma once

#include <CLI/CLI.hpp>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "picture_io.h"
#include "picture_options.h"

namespace qpx {

void AddConvertCommand(CLI::App& app);
void AddBlurCommand(CLI::App& app);
void AddScaleCommand(CLI::App& app);
void AddScaleMaskCommand(CLI::App& app);
void AddResampleCommand(CLI::App& app);
void AddDrawCommand(CLI::App& app);

// The call a command runs, given the pictures its call takes as arguments; nothing for a plain
// conversion.
using CallMaker =
    std::function<std::optional<MethodCall>(const std::vector<qpxhost::HostObject*>& pictures)>;

struct PictureJob {
  // The receiver's image file, then those of the pictures the call takes. --mask gives the last
  // one its mask.
  std::vector<std::string> inputs;
  std::string output;
  CallMaker makeCall;
  // Whether the method's rows may drive a progress bar on a terminal (not in a batch's
  // workers, whose files one bar counts).
  bool progress = true;
};

// Reads the job's inputs into a host booted from `options`, runs its call when it has one, and
// writes the receiver or the call's result to the output (and its mask to --mask-out). Nothing
// is written on any failure.
void RunPictureJob(const PictureCommandOptions& options, const PictureJob& job);

}  // namespace qpx
