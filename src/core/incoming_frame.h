// Finds the frame of a process event, with the message that the steps cdump and cbuff print if there is none.
#pragma once

#include "core/print.h"
#include "scansteps/texture.h"

namespace scansteps {

inline Array& incomingFrame(const varitype& params)
{
    try {
        return pixelsOf(params["handle"].as<std::int32_t>());
    } catch (const char*) {
        print::line("Error err");
        throw;
    }
}

}  // namespace scansteps
