// "qpx demo": runs every method of the module on a built-in sample picture, on a console and a
// desktop host, and writes the results with a contact sheet (index.html).
#pragma once

#include <CLI/CLI.hpp>
#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "picture_io.h"
#include "picture_options.h"

namespace qpx {

// The pictures the demo calls methods on: the sample picture ("pic"), a detail crop of it
// ("detail") for enlargements that show single pixels, a patch of its sky ("sky") to draw into,
// the pictures drawn: a checkerboard tile ("tile") and a ball with a soft round mask ("ball"),
// and a badge with a soft-edged mask ("badge") to resize together with its mask.
enum class DemoImage { Sample, Detail, Sky, Tile, Ball, Badge };
constexpr size_t kDemoImageCount = 6;

// The name the contact sheet gives the picture in calls, e.g. "pic".
const char* DemoImageName(DemoImage image);

struct DemoCall {
  std::string section;  // heading of the contact sheet's section showing the result
  std::string file;     // file name stem; "-console.png" or "-desktop.png" is added
  std::string label;    // shown in bold before the call, e.g. a kernel's name; may be empty
  std::string caption;  // what the result shows
  MethodCall call;      // without the picture `drawn`
  DemoImage receiver = DemoImage::Sample;
  int32_t zoom = 1;  // shown this many times as wide, with square pixels
  // For DrawPictureFQPX: the picture passed as the first argument, drawn into a fresh copy of
  // the receiver.
  std::optional<DemoImage> drawn = std::nullopt;

  // The call with the picture drawn, `picture`, in front of its arguments, and the pictures
  // named as on the contact sheet.
  MethodCall With(qpxhost::HostObject* picture) const;
};

// The calls the demo makes, the calls of one section next to each other.
const std::vector<DemoCall>& DemoCalls();

void AddDemoCommand(CLI::App& app);

// Writes input.png, detail.png, the results and index.html into `directory`, creating it when
// needed. `options.host.host` and `options.alpha` are not used: the demo picks the hosts itself.
void RunDemo(const PictureCommandOptions& options, const std::string& directory);

}  // namespace qpx
