// The frame that a process event names, with the report that the dump and buffer steps make when there is
// none.
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
