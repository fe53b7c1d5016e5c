// A module loaded by the platform loader.
#pragma once

#include <memory>
#include <string>

#include "REALplugin.h"

namespace qpxhost {

class PluginModule {
 public:
  // Loads a private copy of the library at `path`, so that each load starts with the module's
  // process-wide state fresh, and calls its REALPluginMain with `resolver`.
  static std::unique_ptr<PluginModule> Load(const std::string& path, REALResolver resolver);
  ~PluginModule();
  PluginModule(const PluginModule&) = delete;
  PluginModule& operator=(const PluginModule&) = delete;

 private:
  explicit PluginModule(void* handle) : handle_(handle) {}
  [[maybe_unused]] void* handle_;
};

}  // namespace qpxhost
