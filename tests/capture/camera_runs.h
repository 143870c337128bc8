// What the tests of cameras share: settings, whole runs, and the frames of the fake cameras.
#pragma once

#include "support/images.h"
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

/// A camera that delivers img0000.jpg as motion JPEG: the luma of the middle is that of another decoder.
inline void expectMotionJpeg()
{
    const Image photo = examplePhoto("img0000.jpg");
    Struct init = cameraSettings("", photo.width, photo.height, 1);
    init["capture"].set("jpeg", 1);
    Chain chain({"ccap1"});
    EXPECT_THAT(runCamera(chain, std::move(init)), testing::HasSubstr("              0 result\n"));
    const auto middle = std::size_t(photo.height / 2 * photo.width + photo.width / 2);
    EXPECT_NEAR(chain.arrived.at(1).frame->elements<std::uint16_t>()[middle] & 255, greyOf(photo)[middle], 3);
}

}  // namespace scansteps::test
