// Raising a host exception for a failed method call.
#pragma once

#include <cstdint>

// Raises an instance of `className` (or "RuntimeException" when that class cannot be made)
// with `message` as its "Message". The host does not unwind through the module: control
// comes back here, and the caller then returns its neutral result. `errorNumber` is not kept.
void RaiseException(const char* className, const char* message, int32_t errorNumber);
