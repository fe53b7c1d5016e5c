#include "host.h"

#include <cstdio>
#include <stdexcept>
#include <string>

#include "host_picture.h"
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
  void* service = nullptr;
  if (!host->Lacks(name) && (name != "REALGetRBVersion" || host->config_.version)) {
    service = FindService(name);
  }
  host->log.Add({HostCall::Kind::Lookup, name, {}, service ? "found" : "missing", {}});
  return service;
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
  if (const auto* picture = dynamic_cast<const HostPicture*>(object)) {
    if (picture->lockCount > 0) {
      ReportProblem("picture " + ObjectName(picture) + " destroyed with its description locked");
    }
  }
  destroyed_[object] = object->serial();
  for (HostObject* held : node.mapped().object->HeldReferences()) Unlock(held);
}

HostObject* Host::Find(const void* reference, const char* service) {
  auto it = objects_.find(const_cast<void*>(reference));
  if (it != objects_.end()) return it->second.object.get();
  auto gone = destroyed_.find(reference);
  if (gone != destroyed_.end()) {
    ReportProblem(std::string(service) + ": object " + ObjectName(gone->second) +
                  " was already destroyed");
  } else {
    ReportProblem(std::string(service) + ": not a live host object");
  }
  return nullptr;
}

std::vector<HostObject*> Host::LiveObjects() const {
  std::vector<HostObject*> live;
  for (const auto& [address, entry] : objects_) live.push_back(entry.object.get());
  return live;
}

HostObject* Host::FindSerial(uint64_t serial) const {
  for (const auto& [address, entry] : objects_) {
    if (entry.object->serial() == serial) return entry.object.get();
  }
  return nullptr;
}

uint64_t Host::SerialOf(const void* reference) const {
  auto it = objects_.find(const_cast<void*>(reference));
  if (it != objects_.end()) return it->second.object->serial();
  auto gone = destroyed_.find(reference);
  return gone == destroyed_.end() ? 0 : gone->second;
}

std::string Host::NameOf(const void* reference) const {
  if (reference == nullptr) return "nil";
  if (objects_.count(const_cast<void*>(reference)) != 0) return ObjectName(SerialOf(reference));
  auto gone = destroyed_.find(reference);
  if (gone != destroyed_.end()) return ObjectName(gone->second) + " (destroyed)";
  char text[32];
  std::snprintf(text, sizeof text, "%p", reference);
  return text;
}

void Host::ReportProblem(std::string problem) {
  problems_.push_back(std::move(problem));
}

std::vector<std::string> Host::TakeProblems() {
  std::vector<std::string> taken;
  taken.swap(problems_);
  return taken;
}

size_t Host::LogCall(HostCall::Kind kind, std::string name, std::vector<const void*> objects,
                     std::vector<std::string> more) {
  if (!log.enabled()) return kNotLogged;
  HostCall call{kind, std::move(name), {}, {}, {}};
  for (const void* object : objects) {
    call.arguments.push_back(NameOf(object));
    call.objects.push_back(SerialOf(object));
  }
  for (std::string& text : more) call.arguments.push_back(std::move(text));
  log.Add(std::move(call));
  return log.size() - 1;
}

void Host::SetResult(size_t index, std::string result) {
  if (index != kNotLogged) log.At(index).result = std::move(result);
}

void Host::SetResultObject(size_t index, const void* object) {
  if (index == kNotLogged) return;
  log.At(index).result = NameOf(object);
  log.At(index).resultObject = SerialOf(object);
}

int Host::RefCount(const void* object) const {
  auto it = objects_.find(const_cast<void*>(object));
  return it == objects_.end() ? 0 : it->second.refs;
}

std::vector<RegisteredClass> Host::registeredClasses() const {
  std::vector<RegisteredClass> classes;
  for (const REALclassDefinition* record : registeredRecords_) {
    classes.push_back(DecodeClassDefinition(*record));
  }
  return classes;
}

std::optional<RegisteredMethod> Host::FindMethod(const std::string& className,
                                                 const std::string& name) const {
  for (const RegisteredClass& registered : registeredClasses()) {
    if (registered.name != className) continue;
    for (const RegisteredMethod& method : registered.methods) {
      if (method.declaration.name == name) return method;
    }
  }
  return std::nullopt;
}

}  // namespace qpxhost
