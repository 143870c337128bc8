// Steps by the name of their kind, for programs that link the steps instead of loading the library: tests and
// fuzz targets.
#pragma once

#include <memory>
#include <string_view>

#include "scansteps/chain.h"

namespace scansteps::plugin {

/// As the exported create_<kind>, null where there is no such kind.
std::unique_ptr<cChain> createStep(std::string_view kind);

}  // namespace scansteps::plugin
