// The exported functions: create_<kind>, getTypeIn<kind> and getTypeOut<kind> for every step in the table,
// and set_handles. The library exports nothing else.
#include "plugin/factories.h"

#define SCANSTEPS_STEPS_FILE "core/steps.def"
#include "scansteps/step_exports.h"

namespace scansteps::plugin {

std::unique_ptr<cChain> createStep(std::string_view kind)
{
#define SCANSTEPS_STEP(name, ...) \
    if (kind == #name) return std::unique_ptr<cChain>(create_##name());
#include "core/steps.def"
    return nullptr;
}

}  // namespace scansteps::plugin
