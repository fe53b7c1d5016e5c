#include "info_command.h"

#include <cstdio>
#include <memory>

#include "host.h"
#include "host_options.h"

namespace qpx {
namespace {

void RunInfo(const HostOptions& options) {
  qpxhost::Host host(MakeHostConfig(options));
  host.LoadPlugin(PluginPath(options));

  if (host.config().version) {
    std::printf("host version: %.10g (%s application)\n", *host.config().version,
                qpxhost::AppKindName(host.config().app));
  } else {
    std::printf("host version: none (%s application)\n", qpxhost::AppKindName(host.config().app));
  }
  if (host.reportedInterfaceVersion) {
    std::printf("interface version: %d\n", *host.reportedInterfaceVersion);
  } else {
    std::printf("interface version: not reported\n");
  }
  if (host.registeredClasses().empty()) std::printf("no class registered\n");
  for (const qpxhost::RegisteredClass& registered : host.registeredClasses()) {
    std::printf("class %s: version word %ld, flags 0x%08lx, %zu methods\n", registered.name.c_str(),
                static_cast<long>(registered.version), static_cast<unsigned long>(registered.flags),
                registered.methods.size());
    for (const qpxhost::RegisteredMethod& method : registered.methods) {
      std::printf("  flags 0x%08lx  %s\n", static_cast<unsigned long>(method.flags),
                  method.declarationText.c_str());
    }
  }
}

}  // namespace

void AddInfoCommand(CLI::App& app) {
  auto options = std::make_shared<HostOptions>();
  CLI::App* command = app.add_subcommand("info", "Load the module and show what it registers");
  AddHostOptions(*command, *options);
  command->callback([options] { RunInfo(*options); });
}

}  // namespace qpx
