// Options shared by the commands that run pictures through the host: which host, how its
// desktop pictures store their pixels, and the yield argument passed to the methods.
#pragma once

#include <CLI/CLI.hpp>
#include <cstdint>
#include <optional>
#include <string>

#include "host_config.h"
#include "host_options.h"
#include "image_file.h"
#include "picture_services.h"

namespace qpx {

struct PictureCommandOptions {
  HostOptions host;
  int32_t layout = 5;            // desktop pixel layout code of the input picture
  bool alpha = false;            // the input picture gets an alpha channel
  std::optional<int32_t> yield;  // nullopt: qpx chooses
  std::string mask;              // image file of the mask of the picture read; empty: none
  std::string maskOut;           // file to write the result's mask into; empty: none
  uint64_t maxPixels = kDefaultMaxPixels;    // the most pixels an input file may claim
  bool autoOrient = false;                   // turn inputs upright by their EXIF orientation
  bool strip = false;                        // write no metadata (the input's ICC profile)
  std::optional<FileFormat> format;          // of the files written; nullopt: by their names
  int compression = kDefaultPngCompression;  // of the PNG files written
  int quality = kDefaultJpegQuality;         // of the JPEG files written
};

// How `options` asks for the file at `path` to be written, carrying the colour profile `icc`
// unless --strip.
OutputFile OutputFileOf(const PictureCommandOptions& options, const std::string& path,
                        const Image& image, FileColour colour, const std::vector<uint8_t>& icc);

// Adds --host, --host-version, --plugin, --layout, --alpha, --yield, --mask, --mask-out,
// --max-pixels, --auto-orient, --strip, --format, --compression and --quality, and a footer telling
// how files and pictures carry transparency.
void AddPictureOptions(CLI::App& command, PictureCommandOptions& options);
void AddLayoutOption(CLI::App& command, PictureCommandOptions& options);
void AddYieldOption(CLI::App& command, PictureCommandOptions& options);

// The host to boot. Throws CLI::ValidationError for combinations CLI11 cannot check alone.
qpxhost::HostConfig MakePictureHostConfig(const PictureCommandOptions& options);
// The kind of picture the input file becomes.
qpxhost::PictureOptions MakePictureKind(const PictureCommandOptions& options);

// A yield argument that makes the module yield after every row: its rule compares the time
// since the last yield with the argument's negation, which for the smallest integer stays
// negative.
constexpr int32_t kYieldEveryRow = INT32_MIN;

struct YieldPlan {
  int32_t argument = 0;
  bool everyRow = false;  // each row yields, so yields count rows
};
// The user's --yield when given; otherwise every row while a progress bar can be shown, so
// the bar can follow the rows, and never when it cannot.
YieldPlan PlanYield(const std::optional<int32_t>& requested, bool progressWanted);

}  // namespace qpx
