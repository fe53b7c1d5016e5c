// Hosts for fuzzing the picture methods: every kind of application, the host versions at which
// the module changes behaviour, every desktop layout (with the alpha layout of its byte order)
// and row padding, guard bytes around every picture's rows, and now and then a faulty host.
//
// A module keeps what it learnt from the host that loaded it (the application kind, the host's
// version, the services it bound) for the life of the process, and every load maps a new copy
// of it. So each kind and version gets one copy, loaded up front, and every later host of that
// kind and version takes over its registration instead of loading the module again.
#pragma once

#include <memory>
#include <string>

#include "fuzz_input.h"
#include "host.h"

namespace qpxfuzz {

// Loads a copy of the module for every kind of application and version ReadHostConfig gives.
// No host may be booted.
void LoadModules();

// A host configuration from the input, with guard bytes on; now and then a faulty one.
qpxhost::HostConfig ReadHostConfig(FuzzInput& input);
// Whether no picture the host makes for the module can be opened as asked, so that every method
// that makes a picture gives nil.
bool NewPicturesFail(const qpxhost::HostConfig& config);
std::string Describe(const qpxhost::HostConfig& config);

// Boots a host with `config` whose registered class is that of the module loaded for its kind
// and version.
std::unique_ptr<qpxhost::Host> BootHost(const qpxhost::HostConfig& config);

}  // namespace qpxfuzz
