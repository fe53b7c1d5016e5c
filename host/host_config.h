// How a booted emulated host is configured.
#pragma once

#include <cstdint>
#include <optional>
#include <set>
#include <string>

namespace qpxhost {

// The kind of application the host runs; it decides which application class exists and how
// pictures store their pixels.
enum class AppKind { Desktop, Console, Web };

struct HostConfig {
  // The answer of "REALGetRBVersion"; nullopt: the host has no such service.
  std::optional<double> version = 2013.03;
  AppKind app = AppKind::Console;
  // Service names, class names and method declarations this host lacks.
  std::set<std::string> unavailable;
  // Desktop pictures: the bitmap layout (alpha-info code 1 to 6) of pictures without and with
  // an alpha channel, and extra bytes at the end of each row.
  int32_t desktopLayout = 5;
  int32_t desktopAlphaLayout = 1;
  int32_t rowPadding = 0;
};

const char* AppKindName(AppKind kind);
// "desktop", "console" or "web"; nullopt for anything else.
std::optional<AppKind> ParseAppKind(const std::string& name);

}  // namespace qpxhost
