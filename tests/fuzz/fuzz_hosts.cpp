#include "fuzz_hosts.h"

#include <iterator>
#include <map>
#include <optional>
#include <utility>
#include <vector>

namespace qpxfuzz {
namespace {

using qpxhost::AppKind;

// The current host and those at which the module's behaviour changes: interface versions 11,
// 10 and 9, alpha-channel pictures from 2011.04, flag words from 2010.029.
constexpr double kVersions[] = {2013.03, 2013.0, 2012.0, 2011.04, 2010.0};
constexpr AppKind kKinds[] = {AppKind::Desktop, AppKind::Console, AppKind::Web};

struct Registration {
  std::vector<qpxhost::RegisteredClass> classes;
  std::optional<int32_t> interfaceVersion;
};
using ModuleKey = std::pair<AppKind, double>;

std::map<ModuleKey, Registration>& Modules() {
  static std::map<ModuleKey, Registration> modules;
  return modules;
}

}  // namespace

void LoadModules() {
  for (AppKind app : kKinds) {
    for (double version : kVersions) {
      qpxhost::HostConfig config;
      config.app = app;
      config.version = version;
      qpxhost::Host host(config);
      host.LoadPlugin(QPX_PLUGIN_PATH);
      Modules()[{app, version}] = {host.registeredClasses, host.reportedInterfaceVersion};
    }
  }
}

qpxhost::HostConfig ReadHostConfig(FuzzInput& input) {
  qpxhost::HostConfig config;
  config.app = kKinds[input.Int(0, std::size(kKinds) - 1)];
  config.version = kVersions[input.Int(0, std::size(kVersions) - 1)];
  config.guardBytes = true;
  if (config.app == AppKind::Desktop) {
    config.desktopLayout = static_cast<int32_t>(input.Int(1, 6));
    config.desktopAlphaLayout = qpxhost::AlphaLayoutPairedWith(config.desktopLayout);
    config.rowPadding = static_cast<int32_t>(input.Int(0, 16));
  }
  return config;
}

std::string Describe(const qpxhost::HostConfig& config) {
  std::string text =
      std::string(qpxhost::AppKindName(config.app)) + " host " + std::to_string(*config.version);
  if (config.app == AppKind::Desktop) {
    text += ", layouts " + std::to_string(config.desktopLayout) + " and " +
            std::to_string(config.desktopAlphaLayout) + ", rows padded by " +
            std::to_string(config.rowPadding);
  }
  return text;
}

std::unique_ptr<qpxhost::Host> BootHost(const qpxhost::HostConfig& config) {
  const Registration& module = Modules().at({config.app, *config.version});
  auto host = std::make_unique<qpxhost::Host>(config);
  host->registeredClasses = module.classes;
  host->reportedInterfaceVersion = module.interfaceVersion;
  return host;
}

}  // namespace qpxfuzz
