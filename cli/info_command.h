#pragma once

#include <CLI/CLI.hpp>

namespace qpx {

// "qpx info": what the module registers with a host.
void AddInfoCommand(CLI::App& app);

}  // namespace qpx
