// Speed of filters and edge detector on photographs, against memcpy of the same traffic and, where built with
// peers, against libvips' detector (8-bit image, no hysteresis, thinned gradient only). Larger frames are the
// photograph in reflected copies, so the content of a pixel's neighbourhood stays the same.
#include <vector>

#include "../tests/support/images.h"
#include "features/canny_frame16.h"
#include "features/mcanny.h"
#include "ratio.h"
#ifdef SCANSTEPS_PEER_VIPS
#include <vips/vips.h>
#endif

namespace {

using namespace scansteps;

struct Photo
{
    Photo(const benchmark::State& state, const char* name)
        : width(std::size_t(state.range(0))),
          height(std::size_t(state.range(1))),
          pixels(width * height),
          bytes(pixels),
          plane(std::uint32_t(width), std::uint32_t(height)),
          frame(pixels)
    {
        const test::Image image = test::examplePhoto(name);
        const std::vector<std::uint8_t> grey = test::greyOf(image);
        const auto fold = [](std::size_t v, int n) {
            return int(v) / n % 2 != 0 ? n - 1 - int(v) % n : int(v) % n;
        };
        for (std::size_t y = 0; y < height; ++y) {
            for (std::size_t x = 0; x < width; ++x) {
                const std::uint8_t value =
                    grey[std::size_t(fold(y, image.height) * image.width + fold(x, image.width))];
                bytes[y * width + x] = value;
                plane.row(y)[x] = value;
                frame[y * width + x] = std::uint16_t(value | 128 << 8);
            }
        }
    }

    std::size_t width, height, pixels;
    std::vector<std::uint8_t> bytes;
    FloatPlane plane;
    std::vector<std::uint16_t> frame;
};

void SobelX(benchmark::State& state, int size)
{
    Photo p(state, "photo_coffee.jpg");
    FloatPlane out;
    bench::compareWithCopy(state, double(p.pixels), 8, [&] { Sobel(p.plane, out, 1, 0, size); });
}
BENCHMARK_CAPTURE(SobelX, 3, 3)->Apply(bench::frameSizes);
BENCHMARK_CAPTURE(SobelX, 5, 5)->Apply(bench::frameSizes);
BENCHMARK_CAPTURE(SobelX, 7, 7)->Apply(bench::frameSizes);

void LowPass(benchmark::State& state, int size)
{
    Photo p(state, "photo_coffee.jpg");
    bench::compareWithCopy(state, double(p.pixels), 8, [&] { lowPass(p.plane, size); });
}
BENCHMARK_CAPTURE(LowPass, 3, 3)->Apply(bench::frameSizes);
BENCHMARK_CAPTURE(LowPass, 5, 5)->Apply(bench::frameSizes);
BENCHMARK_CAPTURE(LowPass, 7, 7)->Apply(bench::frameSizes);

#ifdef SCANSTEPS_PEER_VIPS
class Vips
{
  public:
    explicit Vips(const Photo& p) : p_(p)
    {
        vips_init("bench");
        vips_concurrency_set(1);
        vips_cache_set_max(0);
    }
    // A sigma this small turns the smoothing before the gradient off, the fastest way to call it.
    void operator()() const
    {
        VipsImage* in = vips_image_new_from_memory(p_.bytes.data(), p_.pixels, int(p_.width), int(p_.height),
                                                   1, VIPS_FORMAT_UCHAR);
        VipsImage* edges = nullptr;
        if (in == nullptr ||
            vips_canny(in, &edges, "sigma", 0.01, "precision", VIPS_PRECISION_INTEGER, nullptr) != 0)
            vips_error_exit("canny");
        std::size_t size = 0;
        g_free(vips_image_write_to_memory(edges, &size));
        g_object_unref(edges);
        g_object_unref(in);
    }

  private:
    const Photo& p_;
};
#endif

// The share of edge pixels stands beside the speed: thinning and hysteresis depend on it.
template <class Work>
void detector(benchmark::State& state, const Photo& p, double edges, Work work)
{
#ifdef SCANSTEPS_PEER_VIPS
    bench::compare(state, double(p.pixels), "of_vips", work, Vips(p));
#else
    bench::compareWithCopy(state, double(p.pixels), 8, work);
#endif
    state.counters["edge_%"] = 100 * edges / double(p.pixels);
}

void CannyPlane(benchmark::State& state, const char* photo, int aperture, double low, double high)
{
    const Photo p(state, photo);
    FloatPlane out;
    CannyWorkspace work;
    Canny(p.plane, out, low, high, aperture, work);
    double edges = 0;
    for (std::size_t y = 0; y < p.height; ++y)
        for (const float v : out.samples(y)) edges += v != 0;
    detector(state, p, edges, [&] { Canny(p.plane, out, low, high, aperture, work); });
}
BENCHMARK_CAPTURE(CannyPlane, coffee_3_400_900, "photo_coffee.jpg", 3, 400, 900)->Apply(bench::frameSizes);
BENCHMARK_CAPTURE(CannyPlane, coffee_3_60_150, "photo_coffee.jpg", 3, 60, 150)->Apply(bench::frameSizes);
BENCHMARK_CAPTURE(CannyPlane, rocket_3_60_150, "photo_rocket.jpg", 3, 60, 150)->Apply(bench::frameSizes);
BENCHMARK_CAPTURE(CannyPlane, chelsea_3_60_150, "photo_chelsea.jpg", 3, 60, 150)->Apply(bench::frameSizes);
BENCHMARK_CAPTURE(CannyPlane, coffee_3_20_60, "photo_coffee.jpg", 3, 20, 60)->Apply(bench::frameSizes);
BENCHMARK_CAPTURE(CannyPlane, coffee_5_720_1800, "photo_coffee.jpg", 5, 720, 1800)->Apply(bench::frameSizes);
BENCHMARK_CAPTURE(CannyPlane, coffee_7_9600_24000, "photo_coffee.jpg", 7, 9600, 24000)
    ->Apply(bench::frameSizes);

void CannyFrame16(benchmark::State& state, const char* photo, int lowPasses, double low, double high)
{
    const Photo p(state, photo);
    CannyWorkspace work;
    std::vector<std::uint16_t> frame = p.frame;
    cannyFrame16(frame, p.width, p.height, Frame16::Video, lowPasses, low, high, 3, work);
    double edges = 0;
    for (const std::uint16_t v : frame) edges += v == 33023;
    // The frame is replaced by its edges, so every call needs it fresh; the copy is part of what is measured.
    detector(state, p, edges, [&] {
        std::copy(p.frame.begin(), p.frame.end(), frame.begin());
        cannyFrame16(frame, p.width, p.height, Frame16::Video, lowPasses, low, high, 3, work);
    });
}
BENCHMARK_CAPTURE(CannyFrame16, coffee_lp0_60_150, "photo_coffee.jpg", 0, 60, 150)->Apply(bench::frameSizes);
BENCHMARK_CAPTURE(CannyFrame16, coffee_lp1_60_150, "photo_coffee.jpg", 1, 60, 150)->Apply(bench::frameSizes);
BENCHMARK_CAPTURE(CannyFrame16, chelsea_lp1_60_150, "photo_chelsea.jpg", 1, 60, 150)
    ->Apply(bench::frameSizes);

}  // namespace

BENCHMARK_MAIN();
