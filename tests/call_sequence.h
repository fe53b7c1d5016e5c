// Reading the emulated host's call log in tests: the calls a module made, as lines such as
// "REALLockPictureDescription(#3, 8) -> true", and how much of a new picture was written.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "host.h"
#include "host_picture.h"

namespace qpxtest {

// How the log names an object: "#serial", or "nil".
std::string Name(const qpxhost::HostObject* object);

// The calls from log index `from` on, lookups left out.
std::vector<std::string> Calls(const qpxhost::Host& host, size_t from = 0);
// Only the calls of the named services and loaded methods (a name matches a call's name
// exactly, so "REALLockObject" does not take "REALLockPictureDescription").
std::vector<std::string> CallsOf(const qpxhost::Host& host, const std::vector<std::string>& names,
                                 size_t from = 0);

// Whether `expected` stands in `calls` in this order, other calls allowed between them; the
// failure message names the first line not found and prints every call.
::testing::AssertionResult InOrder(const std::vector<std::string>& calls,
                                   const std::vector<std::string>& expected);

// The object the last call named `name` from `from` on returned (such as the picture of the last
// "newPicture"), or null.
qpxhost::HostObject* LastResultOf(const qpxhost::Host& host, const std::string& name,
                                  size_t from = 0);

// Rows of `picture` a method has written, counted as rows none of whose pixels still has the
// fourth byte `fill` that the host filled new pictures with (HostConfig::newPixelFill): every
// method writes 255 or 0 there.
int32_t RowsWritten(qpxhost::HostPicture& picture, uint8_t fill);

}  // namespace qpxtest
