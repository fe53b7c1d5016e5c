// The host services the emulated host offers, by service name.
#pragma once

#include <string>

namespace qpxhost {

// The service's address, or null when the emulated host has no service of that name.
void* FindService(const std::string& serviceName);

}  // namespace qpxhost
