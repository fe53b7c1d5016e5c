// "qpx demo": runs every method of the module on a built-in sample picture, on a console and a
// desktop host, and writes the results with a contact sheet (index.html).
#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

#include "picture_io.h"
#include "picture_options.h"

namespace qpx {

struct DemoCall {
  std::string file;     // file name stem; "-console.png" or "-desktop.png" is added
  std::string caption;  // what the result shows
  MethodCall call;
};

// The calls the demo makes, one row per call.
const std::vector<DemoCall>& DemoCalls();

void AddDemoCommand(CLI::App& app);

// Writes input.png, the results and index.html into `directory`, creating it when needed.
// `options.host.host` and `options.alpha` are not used: the demo picks the hosts itself.
void RunDemo(const PictureCommandOptions& options, const std::string& directory);

}  // namespace qpx
