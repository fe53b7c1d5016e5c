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

// What a module registered: its own records, which stay where it keeps them for the life of
// the process.
struct Registration {
  std::vector<const REALclassDefinition*> records;
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
      Modules()[{app, version}] = {host.registeredRecords(), host.reportedInterfaceVersion};
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
  // Now and then a faulty host: byte-order bits above every new picture's layout (harmless), new
  // pictures whose lock hands out no data, or new pictures a pixel larger than asked.
  switch (input.Int(0, 15)) {
    case 13:
      config.newPictureFaults.alphaInfoExtraBits = 0x2000;
      break;
    case 14:
      config.newPictureFaults.lockReportsNullData = true;
      break;
    case 15:
      config.newPictureSizeChange = 1;
      break;
    default:
      break;
  }
  return config;
}

bool NewPicturesFail(const qpxhost::HostConfig& config) {
  return config.newPictureFaults.lockReportsNullData || config.newPictureSizeChange != 0;
}

std::string Describe(const qpxhost::HostConfig& config) {
  std::string text =
      std::string(qpxhost::AppKindName(config.app)) + " host " + std::to_string(*config.version);
  if (config.app == AppKind::Desktop) {
    text += ", layouts " + std::to_string(config.desktopLayout) + " and " +
            std::to_string(config.desktopAlphaLayout) + ", rows padded by " +
            std::to_string(config.rowPadding);
  }
  if (config.newPictureFaults.alphaInfoExtraBits != 0) text += ", byte-order bits on new pictures";
  if (config.newPictureFaults.lockReportsNullData) text += ", new pictures lock with no data";
  if (config.newPictureSizeChange != 0) text += ", new pictures a pixel larger than asked";
  return text;
}

std::unique_ptr<qpxhost::Host> BootHost(const qpxhost::HostConfig& config) {
  const Registration& module = Modules().at({config.app, *config.version});
  auto host = std::make_unique<qpxhost::Host>(config);
  for (const REALclassDefinition* record : module.records) host->Register(record);
  host->reportedInterfaceVersion = module.interfaceVersion;
  return host;
}

}  // namespace qpxfuzz
