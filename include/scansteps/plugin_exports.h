// Defines everything that a plug-in exports. To be included once in a plug-in, with three macros defined
// before: SCANSTEPS_STEPS_FILE, the file of its steps in the format of steps.def, SCANSTEPS_PLUGIN_NAME and
// SCANSTEPS_PLUGIN_VERSION. The CMake function scansteps_add_plugin makes a source file that does just that.
#include "scansteps/step_definitions.h"
#include "scansteps/step_exports.h"

namespace scansteps::plugin {

namespace {

using namespace definitions;

#define SCANSTEPS_SETTINGS SCANSTEPS_SETTINGS_ARRAY
#define SCANSTEPS_STEP SCANSTEPS_STEP_ARRAY
#include SCANSTEPS_STEPS_FILE
#undef SCANSTEPS_STEP
#undef SCANSTEPS_SETTINGS

constexpr StepInfo kSteps[] = {
#define SCANSTEPS_SETTINGS(name, ...)
#define SCANSTEPS_STEP SCANSTEPS_STEP_ENTRY
#include SCANSTEPS_STEPS_FILE
#undef SCANSTEPS_STEP
#undef SCANSTEPS_SETTINGS
};

// The steps of the plug-in find their settings in the table of its own module.
[[maybe_unused]] const bool isAdded = (addSteps(kSteps), true);

}  // namespace

}  // namespace scansteps::plugin

SCANSTEPS_EXPORT const char* scansteps_describe()
{
    static const std::string text =
        scansteps::pluginJson(SCANSTEPS_PLUGIN_NAME, SCANSTEPS_PLUGIN_VERSION, scansteps::plugin::kSteps);
    return text.c_str();
}
