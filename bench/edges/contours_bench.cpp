// Accuracy of the sub-pixel polylines of ccanny2c: distance from true contours of drawn discs and rectangles,
// along the lines, with and without noise. Prints a Markdown table:
//     edges_contours_bench
#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <numbers>
#include <random>
#include <string>
#include <vector>

#include "edges/polyline_record.h"
#include "plugin/factories.h"
#include "scansteps/handles.h"
#include "scansteps/texture.h"
#include "support/silence.h"

namespace {

using namespace scansteps;
using edges::Vertex;

constexpr int kSide = 480;

struct Shape
{
    double x, y, radius;                  // a disc, or
    double halfWidth, halfHeight, angle;  // a rectangle where the radius is 0

    /// Signed distance from the contour, negative inside. `corner`: the nearest point is within four pixels
    /// of a corner.
    double distance(double px, double py, bool& corner) const
    {
        corner = false;
        if (radius > 0) return std::hypot(px - x, py - y) - radius;
        const double c = std::cos(angle), s = std::sin(angle);
        const double u = std::abs(c * (px - x) + s * (py - y)) - halfWidth;
        const double v = std::abs(c * (py - y) - s * (px - x)) - halfHeight;
        corner = u > -4 && v > -4;
        return std::max(u, v);
    }
};

std::vector<Shape> shapes(unsigned seed)
{
    std::mt19937 random(seed);
    const auto uniform = [&](double a, double b) { return a + (b - a) * (double(random()) / 4294967296.0); };
    std::vector<Shape> all;
    for (int row = 0; row < 3; ++row)
        for (int column = 0; column < 3; ++column) {
            Shape s{80 + 160 * column + uniform(-5, 5), 80 + 160 * row + uniform(-5, 5), 0, 0, 0, 0};
            if ((row + column) % 2 == 0)
                s.radius = uniform(15, 65);
            else
                s.halfWidth = uniform(20, 45), s.halfHeight = uniform(20, 45),
                s.angle = uniform(0, std::numbers::pi);
            all.push_back(s);
        }
    return all;
}

// Bright shapes on dark ground as a lens with a blur of 0.8 pixels and square pixels show them.
Array drawn(const std::vector<Shape>& all, double noise, unsigned seed)
{
    std::mt19937 random(seed);
    std::normal_distribution<double> normal;
    Array frame(Kind::Ushort, kSide, kSide);
    for (int y = 0; y < kSide; ++y)
        for (int x = 0; x < kSide; ++x) {
            double covered = 0;
            bool corner = false;
            for (const Shape& s : all)
                if (std::abs(s.distance(x, y, corner)) < 6 || s.distance(x, y, corner) < 0)
                    for (int j = 0; j < 8; ++j)
                        for (int i = 0; i < 8; ++i) {
                            const double d = s.distance(x + (i - 3.5) / 8, y + (j - 3.5) / 8, corner);
                            covered += 0.5 * std::erfc(d / (0.8 * std::numbers::sqrt2)) / 64;
                        }
            const double value = 60 + 130 * covered + noise * normal(random);
            frame.elements<std::uint16_t>()[std::size_t(y * kSide + x)] =
                std::uint16_t(32768 + std::clamp(std::lround(value), 0L, 255L));
        }
    return frame;
}

struct Errors
{
    double sum = 0, absolute = 0;
    long count = 0;

    void along(Vertex a, Vertex b, const std::vector<Shape>& all)
    {
        const int steps = std::max(int(std::hypot(b.x - a.x, b.y - a.y) * 4), 1);
        for (int i = 0; i < steps; ++i) {
            const double t = (i + 0.5) / steps;
            bool corner = false;
            for (const Shape& s : all)
                if (const double d = s.distance(double(a.x) + t * double(b.x - a.x),
                                                double(a.y) + t * double(b.y - a.y), corner);
                    std::abs(d) < 3 && !corner)
                    sum += d, absolute += std::abs(d), ++count;
        }
    }
};

// Keeps the record that arrives.
class End final : public cChain
{
  public:
    void dispatch(varitype& record) override { last = record; }
    varitype last;
};

Errors measured(double noise, double limit)
{
    Errors errors;
    for (unsigned seed = 1; seed <= 6; ++seed) {
        const std::vector<Shape> all = shapes(seed);
        const bench::Silence silence;
        const auto step = plugin::createStep("ccanny2c");
        End end;
        step->setNext(&end);
        const auto own = createTexture(formatCode("u_1x16"), kSide, kSide);
        varitype settings{Struct{{"eventType", event::kInit},
                                 {"dataX", kSide},
                                 {"dataY", kSide},
                                 {"dataFormat", "CPU::u_1x16"},
                                 {"OCV", Struct{{"trl", float(limit)}, {"trh", float(2.5 * limit)}}}}};
        step->dispatch(settings);
        pixelsOf(int(own->handle)) = drawn(all, noise, seed);
        varitype record{Struct{{"eventType", event::kProcess}, {"handle", int(own->handle)}}};
        step->dispatch(record);
        edges::Polylines lines;
        edges::polylinesOf(end.last, lines);
        for (std::size_t k = 0; k < lines.size(); ++k) {
            const auto [items, closed] = lines[k];
            for (std::size_t i = 1; i < items.size(); ++i) errors.along(items[i - 1], items[i], all);
            if (closed && items.size() > 2) errors.along(items.back(), items.front(), all);
        }
    }
    return errors;
}

}  // namespace

int main()
{
    HandleTable table;
    fillFreeHandles(table);
    installHandles(&table);
    fmt::print(
        "| noise, grey levels | mean distance, px | bias, px | target | miss |\n|---|---|---|---|---|\n");
    for (const double noise : {0.0, 2.0, 5.0}) {
        const Errors e = measured(noise, 120);
        const double mean = e.absolute / double(std::max(e.count, 1L));
        const double bias = e.sum / double(std::max(e.count, 1L));
        const double most = noise > 2 ? 0.1 : 0.06;
        std::string miss;
        if (mean > most) miss = fmt::format("{:.3f} px", mean - most);
        if (std::abs(bias) >= 0.02)
            miss += fmt::format("{}bias {:.3f} px", miss.empty() ? "" : ", ", std::abs(bias) - 0.02);
        fmt::print("| {:.0f} | {:.3f} | {:+.3f} | ≤ {:.2f}, bias < 0.02 | {} |\n", noise, mean, bias, most,
                   miss);
    }
    installHandles(nullptr);
}
