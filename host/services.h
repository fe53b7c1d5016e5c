// The host services the emulated host offers, by service name.
#pragma once

#include <string>
#include <vector>

#include "call_log.h"

namespace qpxhost {

// The service's address, or null when the emulated host has no service of that name.
void* FindService(const std::string& serviceName);

// Logs a call of a service (or, with `kind`, of a loaded method) in the booted host: the objects
// among its arguments first, then the rest as text. Returns the entry's index for its result.
size_t LogService(const char* name, std::vector<const void*> objects,
                  std::vector<std::string> more = {},
                  HostCall::Kind kind = HostCall::Kind::Service);
// Records the result of the logged call `index`: a truth value, a number or an object.
void LogResult(size_t index, bool result);
void LogResult(size_t index, const void* object);
void LogNumber(size_t index, double result);
// A text argument as the log shows it: in quotes, or nil.
std::string Quoted(const char* text);

}  // namespace qpxhost
