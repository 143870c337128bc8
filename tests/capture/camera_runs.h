// What the tests of cameras share: settings, whole runs, and the frames of the fake cameras.
#pragma once

#include "support/test.h"

namespace scansteps::test {

inline Struct cameraSettings(const std::string& device, int width = 64, int height = 48, int frames = 0)
{
    return {{"dataX", width},
            {"dataY", height},
            {"capture", Struct{{"dev_name", device}, {"count_max", frames}}}};
}

/// Runs the chain to its end: initialise, frames until the step stops, flush. Returns the printed text.
inline std::string runCamera(Chain& chain, Struct init)
{
    return printed([&] {
        chain.init(std::move(init));
        while (chain.process() != event::kFlush) {
        }
        chain.flush();
    });
}

/// The running number that fake cameras put into a frame.
inline std::uint32_t numberOf(const Arrived& arrived)
{
    std::uint32_t number = 0;
    std::memcpy(&number, arrived.frame->data(), sizeof number);
    return number;
}

}  // namespace scansteps::test
