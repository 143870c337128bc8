// The files that new-step writes: those of the folder new_step, put into the program by CMake. KIND in names
// and
// @kind@ and @Class@ in texts stand for the new step.
#pragma once

#include <span>
#include <string_view>

namespace scansteps::host {

struct NewStepTemplate
{
    std::string_view name, text;
};
extern const std::span<const NewStepTemplate> kNewStepTemplates;

}  // namespace scansteps::host
