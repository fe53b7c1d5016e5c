// qpx: a small console host for the picture plug-in.
#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>
#include <string>
#include <vector>

#include "demo_command.h"
#include "image_file.h"
#include "info_command.h"
#include "picture_commands.h"

namespace {

// What went wrong when no command was recognised: CLI11 only says that one is required, so this
// names what was typed instead.
std::string MissingCommand(const CLI::App* app) {
  const std::vector<std::string> typed = app->remaining();
  if (typed.empty()) return "a command is required";
  const std::string& first = typed.front();
  return (first.rfind('-', 0) == 0 ? "unknown option '" : "unknown command '") + first + "'";
}

// A usage error in one line, as every other error, naming the help to read.
std::string UsageError(const CLI::App* app, const CLI::Error& error) {
  std::string help = "qpx";
  for (const CLI::App* command : app->get_subcommands()) help += " " + command->get_name();
  std::string what = app->get_subcommands().empty() ? MissingCommand(app) : error.what();
  for (char& c : what) {
    const auto u = static_cast<unsigned char>(c);
    if (c == '\n') {
      c = ' ';
    } else if (u < 0x20 || u == 0x7f) {
      c = '?';  // a control character typed in an argument would break the line
    }
  }
  return "qpx: " + what + " (see '" + help + " --help')\n";
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app{"qpx: runs the picture plug-in's methods on image files through an emulated host"};
  app.failure_message(UsageError);
  app.require_subcommand(1);
  app.set_version_flag("--version", std::string("qpx " QPX_VERSION "\n") + "libraries: " +
                                        qpx::ImageLibraryVersions() + ", CLI11 " CLI11_VERSION);
  qpx::AddInfoCommand(app);
  qpx::AddConvertCommand(app);
  qpx::AddBlurCommand(app);
  qpx::AddScaleCommand(app);
  qpx::AddScaleMaskCommand(app);
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
