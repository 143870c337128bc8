// Creates steps by name, for programs that link the steps instead of loading the library: tests, benchmarks
// and fuzz targets.
#pragma once

#include <memory>
#include <string_view>

#include "scansteps/chain.h"

namespace scansteps::plugin {

/// The same as the exported create_<kind>; null if there is no such step.
std::unique_ptr<cChain> createStep(std::string_view kind);

}  // namespace scansteps::plugin
