// What a plug-in tells a host about its steps. Plug-ins export the same functions as the step library, and
// scansteps_describe() beside them; plugin_exports.h defines them all.
#pragma once

#include <span>
#include <string>

#include "scansteps/steps.h"

namespace scansteps {

/// Number of the interface between hosts and plug-ins: the layout of records, arrays, chains and the handle
/// table, and the exported functions. A host refuses a plug-in that was built against another number.
inline constexpr int kPluginInterface = 1;

/// Adds steps to the table of this module (stepTable(), findStep()). What they refer to must stay valid until
/// the program ends. The kinds must be new: nothing checks it. May be called from any thread.
void addSteps(std::span<const StepInfo> steps);

/// The steps as a JSON array, with everything that the table says of them.
std::string stepsJson(std::span<const StepInfo> steps);
/// What scansteps_describe() returns: {"interface": 1, "plugin": "...", "version": "...", "steps": [...]}.
std::string pluginJson(const char* plugin, const char* version, std::span<const StepInfo> steps);

}  // namespace scansteps
