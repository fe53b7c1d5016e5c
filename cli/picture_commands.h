// "qpx convert", "qpx blur", "qpx scale" and "qpx resample": an image file through a host picture,
// and optionally one of the module's methods, into a PNG file.
#pragma once

#include <CLI/CLI.hpp>
#include <optional>
#include <string>

#include "picture_io.h"
#include "picture_options.h"

namespace qpx {

void AddConvertCommand(CLI::App& app);
void AddBlurCommand(CLI::App& app);
void AddScaleCommand(CLI::App& app);
void AddResampleCommand(CLI::App& app);

// Reads `input` into a host booted from `options`, runs `call` on it when given, and writes
// the picture or the call's result to `output`. Nothing is written on any failure.
void ProcessFile(const PictureCommandOptions& options, const std::string& input,
                 const std::string& output, const std::optional<MethodCall>& call);

}  // namespace qpx
