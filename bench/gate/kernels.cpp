// Six kernels, each run once under callgrind, which counts their instructions; scripts/bench_gate.sh compares
// the counts with the stored ones. The instruction set is fixed, so that counts do not depend on the machine.
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <memory>
#include <vector>

#include "../../tests/support/images.h"
#include "edges/canny_frame16.h"
#include "hwy/targets.h"
#include "jpeg/decoder.h"
#include "pixels/offset16.h"
#include "pixels/yuyv.h"
#include "valgrind/callgrind.h"

namespace {

using namespace scansteps;
using namespace scansteps::edges;
using namespace scansteps::grey;
using namespace scansteps::jpeg;
using namespace scansteps::pixels;

/// Counts one call, after a warm-up call that allocates memory and selects the code path.
template <class Work>
void count(const char* name, Work work)
{
    work();
    CALLGRIND_START_INSTRUMENTATION;
    CALLGRIND_ZERO_STATS;
    work();
    CALLGRIND_DUMP_STATS_AT(name);
    CALLGRIND_STOP_INSTRUMENTATION;
}

std::vector<std::uint8_t> fileBytes(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

void countKernels()
{
    const test::Image photo = test::examplePhoto("photo_coffee.jpg");
    const auto width = std::size_t(photo.width) & ~std::size_t{1}, height = std::size_t(photo.height);
    const std::size_t pixels = width * height;
    std::vector<std::uint8_t> rgb(photo.rgb.begin(), photo.rgb.begin() + std::ptrdiff_t(3 * pixels));
    std::vector<std::uint16_t> yuyv(pixels), frame(pixels);
    count("rgbToYuyv", [&] { rgbToYuyv(rgb, yuyv, width, height); });
    count("yuyvToRgb", [&] { yuyvToRgb(yuyv, rgb, width, height); });

    FloatPlane plane;
    frame16ToPlane(yuyv, plane, width, height, SampleCoding::Yuyv16);
    const std::vector<float> samples(plane.row(0), plane.row(0) + width);
    std::vector<std::uint16_t> line(width);
    count("floatToOffset16", [&] {
        for (int repeat = 0; repeat < 100; ++repeat) floatToOffset16(samples, line);
    });
    count("lowPass3x3", [&] { lowPass(plane, 3); });

    CannyWorkspace work;
    count("cannyFrame16", [&] {
        frame = yuyv;
        cannyFrame16(frame, width, height, SampleCoding::Yuyv16, 1, 60, 150, 3, work);
    });

    const std::vector<std::uint8_t> jpeg = fileBytes(test::examplePath("img0000.jpg"));
    std::vector<std::uint8_t> planes[3];
    count("baselineJpeg", [&] {
        BaselineJpegDecoder decoder;
        int status = decoder.parseHeader(jpeg);
        for (int k = 0; k < 3; ++k) planes[k].resize(decoder.planeSize(k, JpegLayout::kYuv420).samples());
        decoder.setComponents({planes[0], planes[1], planes[2]});
        status |= decoder.decode();
        if (status != 0) std::fprintf(stderr, "%s\n", decoder.getErrorString());
    });
}

}  // namespace

int main()
{
    if ((hwy::SupportedTargets() & HWY_AVX2) == 0) {
        std::fputs("this processor lacks AVX2, for which the stored instruction counts hold\n", stderr);
        return 2;
    }
    hwy::SetSupportedTargetsForTest(HWY_AVX2);
    countKernels();
    return 0;
}
