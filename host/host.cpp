#include "host.h"

#include <stdexcept>
#include <string>

#include "plugin_module.h"
#include "services.h"

namespace qpxhost {
namespace {
Host* gBootedHost = nullptr;
}  // namespace

const char* AppKindName(AppKind kind) {
  switch (kind) {
    case AppKind::Desktop:
      return "desktop";
    case AppKind::Console:
      return "console";
    case AppKind::Web:
      return "web";
  }
  return "?";
}

std::optional<AppKind> ParseAppKind(const std::string& name) {
  if (name == "desktop") return AppKind::Desktop;
  if (name == "console") return AppKind::Console;
  if (name == "web") return AppKind::Web;
  return std::nullopt;
}

int32_t AlphaLayoutPairedWith(int32_t layout) {
  return layout % 2 == 1 ? 1 : 2;
}

int32_t OpaqueLayoutPairedWith(int32_t alphaLayout) {
  return alphaLayout == 1 ? 5 : 6;
}

bool LayoutsPaired(const HostConfig& config) {
  return config.desktopLayout >= 1 && config.desktopLayout <= 6 &&
         (config.desktopAlphaLayout == 1 || config.desktopAlphaLayout == 2) &&
         AlphaLayoutPairedWith(config.desktopLayout) == config.desktopAlphaLayout;
}

Host::Host(HostConfig config) : config_(std::move(config)) {
  if (!LayoutsPaired(config_)) {
    throw std::invalid_argument("desktop layouts " + std::to_string(config_.desktopLayout) +
                                " and " + std::to_string(config_.desktopAlphaLayout) +
                                " are not in one byte order");
  }
  if (gBootedHost != nullptr) throw std::logic_error("another emulated host is already booted");
  gBootedHost = this;
}

Host::~Host() {
  plugins_.clear();
  gBootedHost = nullptr;
}

Host* Host::Current() {
  return gBootedHost;
}

void* Host::Resolve(const char* serviceName) {
  Host* host = gBootedHost;
  if (host == nullptr || serviceName == nullptr) return nullptr;
  const std::string name(serviceName);
  ++host->lookups_[name];
  if (host->Lacks(name)) return nullptr;
  if (name == "REALGetRBVersion" && !host->config_.version) return nullptr;
  return FindService(name);
}

void Host::SetUnavailable(const std::string& name, bool unavailable) {
  if (unavailable) {
    config_.unavailable.insert(name);
  } else {
    config_.unavailable.erase(name);
  }
}

void Host::LoadPlugin(const std::string& path) {
  plugins_.push_back(PluginModule::Load(path, &Host::Resolve));
}

int Host::LookupCount(const std::string& serviceName) const {
  auto it = lookups_.find(serviceName);
  return it == lookups_.end() ? 0 : it->second;
}

void Host::Lock(HostObject* object) {
  auto it = objects_.find(object);
  if (it == objects_.end()) {
    ReportProblem("reference added to an object that is not live");
    return;
  }
  ++it->second.refs;
}

void Host::Unlock(HostObject* object) {
  auto it = objects_.find(object);
  if (it == objects_.end()) {
    ReportProblem("reference dropped from an object that is not live");
    return;
  }
  if (--it->second.refs == 0) Destroy(object);
}

void Host::Destroy(HostObject* object) {
  auto node = objects_.extract(object);
  for (HostObject* held : node.mapped().object->HeldReferences()) Unlock(held);
}

HostObject* Host::Find(const void* reference, const char* service) {
  auto it = objects_.find(const_cast<void*>(reference));
  if (it != objects_.end()) return it->second.object.get();
  ReportProblem(std::string(service) + ": not a live host object");
  return nullptr;
}

int Host::RefCount(const void* object) const {
  auto it = objects_.find(const_cast<void*>(object));
  return it == objects_.end() ? 0 : it->second.refs;
}

const RegisteredMethod* Host::FindMethod(const std::string& className,
                                         const std::string& name) const {
  for (const RegisteredClass& registered : registeredClasses) {
    if (registered.name != className) continue;
    for (const RegisteredMethod& method : registered.methods) {
      if (method.declaration.name == name) return &method;
    }
  }
  return nullptr;
}

}  // namespace qpxhost
