#include "host_options.h"

#include <unistd.h>

#include <climits>
#include <cstdlib>

namespace qpx {

void AddHostOptions(CLI::App& command, HostOptions& options, bool withHostKind) {
  if (withHostKind) {
    command.add_option("--host", options.host, "Kind of host application")
        ->check(CLI::IsMember({"desktop", "console", "web"}))
        ->capture_default_str();
  }
  command
      .add_option("--host-version", options.hostVersion,
                  "Version the host reports, or 'none' for a host without a version service")
      ->capture_default_str();
  command.add_option("--plugin", options.plugin, "Module to load (default: the one beside qpx)");
}

qpxhost::HostConfig MakeHostConfig(const HostOptions& options) {
  qpxhost::HostConfig config;
  config.app = *qpxhost::ParseAppKind(options.host);
  if (options.hostVersion == "none") {
    config.version = std::nullopt;
  } else {
    char* end = nullptr;
    const double version = std::strtod(options.hostVersion.c_str(), &end);
    if (end == options.hostVersion.c_str() || *end != '\0') {
      throw CLI::ValidationError("--host-version", "expected a number or 'none'");
    }
    config.version = version;
  }
  return config;
}

std::string PluginPath(const HostOptions& options) {
  if (!options.plugin.empty()) return options.plugin;
  char self[PATH_MAX];
  const ssize_t length = readlink("/proc/self/exe", self, sizeof(self) - 1);
  if (length <= 0) return "qpxplugin.so";
  std::string path(self, static_cast<size_t>(length));
  return path.substr(0, path.rfind('/') + 1) + "qpxplugin.so";
}

}  // namespace qpx
