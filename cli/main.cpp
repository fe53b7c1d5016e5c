// qpx: a small console host for the picture plug-in.
#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>

#include "demo_command.h"
#include "info_command.h"
#include "picture_commands.h"

int main(int argc, char** argv) {
  CLI::App app{"qpx: runs the picture plug-in's methods on image files through an emulated host"};
  app.require_subcommand(1);
  qpx::AddInfoCommand(app);
  qpx::AddConvertCommand(app);
  qpx::AddBlurCommand(app);
  qpx::AddScaleCommand(app);
  qpx::AddResampleCommand(app);
  qpx::AddDrawCommand(app);
  qpx::AddDemoCommand(app);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& e) {
    return app.exit(e) == 0 ? 0 : 2;
  } catch (const std::exception& e) {
    std::fprintf(stderr, "qpx: %s\n", e.what());
    return 1;
  }
  return 0;
}
