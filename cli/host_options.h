// Options every qpx command shares for booting the emulated host and loading the module.
#pragma once

#include <CLI/CLI.hpp>
#include <string>

#include "host_config.h"

namespace qpx {

struct HostOptions {
  std::string host = "console";
  std::string hostVersion = "2013.03";
  std::string plugin;  // empty: the module beside qpx
};

// `withHostKind` false leaves out --host, for commands that choose the kinds themselves.
void AddHostOptions(CLI::App& command, HostOptions& options, bool withHostKind = true);
// Throws CLI::ValidationError for a bad version.
qpxhost::HostConfig MakeHostConfig(const HostOptions& options);
std::string PluginPath(const HostOptions& options);

}  // namespace qpx
