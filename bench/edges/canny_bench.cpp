// Speed of filters and edge detector on photographs, compared with memcpy of the same amount of data and, if
// built with peers, with libvips' detector (8-bit image, thinned gradient without thresholds or hysteresis).
#include <algorithm>
#include <vector>

#include "edges/canny.h"
#include "edges/canny_frame16.h"
#include "support/ratio.h"
#include "support/scaled.h"
#ifdef SCANSTEPS_PEER_VIPS
#include <vips/vips.h>
#endif

namespace {

using namespace scansteps;
using namespace scansteps::edges;
using namespace scansteps::grey;

struct Photo
{
    Photo(const char* name, std::size_t columns, std::size_t rows)
        : width(columns),
          height(rows),
          pixels(width * height),
          bytes(test::greyOf(bench::reflected(test::examplePhoto(name), int(width), int(height)))),
          plane(std::uint32_t(width), std::uint32_t(height)),
          frame(pixels)
    {
        for (std::size_t k = 0; k < pixels; ++k) {
            plane.row(k / width)[k % width] = bytes[k];
            frame[k] = std::uint16_t(bytes[k] | 128 << 8);
        }
    }
    Photo(const char* name, const benchmark::State& state)
        : Photo(name, std::size_t(state.range(0)), std::size_t(state.range(1)))
    {
    }

    std::size_t width, height, pixels;
    std::vector<std::uint8_t> bytes;
    FloatPlane plane, out;
    bench::Samples<std::uint16_t> frame;
};

// Sets the counter "growth" of a kernel that is called as `work(photo)`.
template <class Work>
void growth(benchmark::State& state, const char* name, Photo& photo, Work work)
{
    if (photo.width != 7680) return;
    std::vector<Photo> small;
    const std::size_t count = photo.pixels / (bench::kSmallWidth * bench::kSmallHeight);
    small.reserve(count);
    while (small.size() < count) small.emplace_back(name, bench::kSmallWidth, bench::kSmallHeight);
    bench::compareWithSmallFrames(
        state, photo.pixels, [&] { work(photo); }, [&](std::size_t k) { work(small[k]); });
}

template <class Work>
void filter(benchmark::State& state, Work work)
{
    const char* name = "photo_coffee.jpg";
    Photo photo(name, state);
    bench::compareWithCopy(state, double(photo.pixels), 8, [&] { work(photo); });
    growth(state, name, photo, work);
}

void SobelX(benchmark::State& state, int size)
{
    filter(state, [size](Photo& p) { Sobel(p.plane, p.out, 1, 0, size); });
}
BENCHMARK_CAPTURE(SobelX, 3, 3)->Apply(bench::frameSizes);
BENCHMARK_CAPTURE(SobelX, 5, 5)->Apply(bench::frameSizes);
BENCHMARK_CAPTURE(SobelX, 7, 7)->Apply(bench::frameSizes);

void LowPass(benchmark::State& state, int size)
{
    filter(state, [size](Photo& p) { lowPass(p.plane, size); });
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
    // A sigma this small disables smoothing, which makes the call as fast as possible.
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

// Also reports the share of edge pixels, on which the speed of thinning and hysteresis depends.
template <class Work>
void detector(benchmark::State& state, const char* name, Photo& p, double edges, Work work)
{
#ifdef SCANSTEPS_PEER_VIPS
    bench::compare(
        state, double(p.pixels), "of_vips", [&] { work(p); }, Vips(p));
#else
    bench::compareWithCopy(state, double(p.pixels), 8, [&] { work(p); });
#endif
    growth(state, name, p, work);
    state.counters["edge_%"] = 100 * edges / double(p.pixels);
}

void CannyPlane(benchmark::State& state, const char* photo, int aperture, double low, double high)
{
    Photo p(photo, state);
    CannyWorkspace own, small;
    const auto work = [&](Photo& on) {
        Canny(on.plane, on.out, low, high, aperture, on.width == p.width ? own : small);
    };
    work(p);
    double edges = 0;
    for (std::size_t y = 0; y < p.height; ++y)
        for (const float v : p.out.samples(y)) edges += v != 0;
    detector(state, photo, p, edges, work);
}
BENCHMARK_CAPTURE(CannyPlane, coffee_3_400_900, "photo_coffee.jpg", 3, 400, 900)->Apply(bench::frameSizes);
BENCHMARK_CAPTURE(CannyPlane, coffee_3_60_150, "photo_coffee.jpg", 3, 60, 150)->Apply(bench::frameSizes);
BENCHMARK_CAPTURE(CannyPlane, rocket_3_60_150, "photo_rocket.jpg", 3, 60, 150)->Apply(bench::frameSizes);
BENCHMARK_CAPTURE(CannyPlane, chelsea_3_60_150, "photo_chelsea.jpg", 3, 60, 150)->Apply(bench::frameSizes);
BENCHMARK_CAPTURE(CannyPlane, coffee_3_20_60, "photo_coffee.jpg", 3, 20, 60)->Apply(bench::frameSizes);
BENCHMARK_CAPTURE(CannyPlane, coffee_5_720_1800, "photo_coffee.jpg", 5, 720, 1800)->Apply(bench::frameSizes);
BENCHMARK_CAPTURE(CannyPlane, coffee_7_9600_24000, "photo_coffee.jpg", 7, 9600, 24000)
    ->Apply(bench::frameSizes);

// The frame is replaced by its edges, so every call starts with a copy, which is included in the measurement.
void CannyFrame16(benchmark::State& state, const char* photo, int lowPasses, double low, double high)
{
    Photo p(photo, state);
    CannyWorkspace own, small;
    bench::Samples<std::uint16_t> result(p.pixels);
    const auto work = [&](Photo& on) {
        const auto from = on.frame.part(0, on.pixels), to = result.part(0, on.pixels);
        std::copy(from.begin(), from.end(), to.begin());
        cannyFrame16(to, on.width, on.height, SampleCoding::Yuyv16, lowPasses, low, high, 3,
                     on.width == p.width ? own : small);
    };
    work(p);
    double edges = 0;
    for (const std::uint16_t v : result.part(0, p.pixels)) edges += v == 33023;
    detector(state, photo, p, edges, work);
}
BENCHMARK_CAPTURE(CannyFrame16, coffee_lp0_60_150, "photo_coffee.jpg", 0, 60, 150)->Apply(bench::frameSizes);
BENCHMARK_CAPTURE(CannyFrame16, coffee_lp1_60_150, "photo_coffee.jpg", 1, 60, 150)->Apply(bench::frameSizes);
BENCHMARK_CAPTURE(CannyFrame16, chelsea_lp1_60_150, "photo_chelsea.jpg", 1, 60, 150)
    ->Apply(bench::frameSizes);

}  // namespace

BENCHMARK_MAIN();
