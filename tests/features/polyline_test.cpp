#include "features/polyline.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <random>
#include <set>
#include <string>

#include "features/edge_regions.h"
#include "features/mcanny.h"
#include "features/subpixel_edges.h"
#include "support/chain.h"
#include "support/frames16.h"
#include "support/images.h"

namespace scansteps {
namespace {

struct Map
{
    int width, height;
    std::vector<std::uint8_t> cells;
};

Map mapOf(const std::vector<std::string>& rows)
{
    Map map{int(rows[0].size()), int(rows.size()), {}};
    for (const std::string& row : rows)
        for (const char c : row) map.cells.push_back(c == '#' ? 255 : 0);
    return map;
}

TEST(Polylines, chainsEndAtEndsAndJunctions)
{
    const struct
    {
        std::vector<std::string> rows;
        std::vector<std::size_t> lengths;  // of the open chains, then of the closed ones
        std::size_t closed;
    } cases[] = {
        {{"......", ".####.", "......"}, {4}, 0},
        {{"#.....", "##....", ".##...", "..##.."}, {7}, 0},                // a staircase has no junction
        {{"..#..", "..#..", "#####", "..#..", "..#.."}, {3, 3, 3, 3}, 0},  // a cross: 4 arms, joint shared
        {{".##.", "#..#", ".##."}, {6}, 1},                                // a loop
        {{"..#..", ".#.#.", "..#..", "..#..", "..#.."}, {3, 4}, 1},        // a loop on a stem
        {{"#....", ".....", "...#."}, {}, 0},                              // single pixels
        {{"##"}, {2}, 0},
    };
    for (const auto& c : cases) {
        const Map map = mapOf(c.rows);
        std::vector<std::size_t> open, closed;
        for (const PixelChain& chain : traceChains(map.cells, map.width, map.height))
            (chain.closed ? closed : open).push_back(chain.places.size());
        std::ranges::sort(open);
        std::vector<std::size_t> all = open;
        all.insert(all.end(), closed.begin(), closed.end());
        EXPECT_EQ(all, c.lengths) << c.rows[0];
        EXPECT_EQ(closed.size(), c.closed) << c.rows[0];
    }
}

// Every link between neighbouring pixels lies in exactly one chain, whatever the map.
TEST(Polylines, everyLinkOnce)
{
    std::mt19937 random(9);
    for (int round = 0; round < 300; ++round) {
        Map map{1 + int(random() % 20), 1 + int(random() % 20), {}};
        const auto share = 2 + random() % 5;
        for (int i = 0; i < map.width * map.height; ++i) map.cells.push_back(random() % share == 0 ? 1 : 0);
        const auto at = [&](int x, int y) {
            return x >= 0 && y >= 0 && x < map.width && y < map.height &&
                   map.cells[std::size_t(y * map.width + x)] != 0;
        };
        std::set<std::pair<int, int>> links;
        for (int y = 0; y < map.height; ++y)
            for (int x = 0; x < map.width; ++x)
                for (const auto& [dx, dy] : {std::pair{1, 0}, {0, 1}, {1, 1}, {-1, 1}})
                    if (at(x, y) && at(x + dx, y + dy) &&
                        (dx * dy == 0 || (!at(x + dx, y) && !at(x, y + dy))))
                        links.insert({y * map.width + x, (y + dy) * map.width + x + dx});
        std::map<std::pair<int, int>, int> found;
        for (const PixelChain& chain : traceChains(map.cells, map.width, map.height)) {
            auto places = chain.places;
            if (chain.closed) places.push_back(places[0]);
            for (std::size_t i = 1; i < places.size(); ++i)
                ++found[std::minmax(int(places[i - 1]), int(places[i]))];
        }
        ASSERT_EQ(found.size(), links.size()) << round;
        for (const auto& [link, times] : found) {
            ASSERT_EQ(times, 1);
            ASSERT_TRUE(links.contains(link));
        }
    }
}

double distanceTo(const Polyline& line, Vertex p)
{
    double best = 1e9;
    const std::size_t n = line.verts.size();
    for (std::size_t i = 0; i + (line.closed ? 0 : 1) < n; ++i) {
        const Vertex a = line.verts[i], b = line.verts[(i + 1) % n];
        const double dx = double(b.x - a.x), dy = double(b.y - a.y);
        const double t = std::clamp(
            (double(p.x - a.x) * dx + double(p.y - a.y) * dy) / (dx * dx + dy * dy + 1e-30), 0.0, 1.0);
        best = std::min(best, std::hypot(double(p.x - a.x) - t * dx, double(p.y - a.y) - t * dy));
    }
    return best;
}

TEST(Polylines, simplifiedLinesStayWithinTheTolerance)
{
    Polyline circle{{}, true}, straight;
    for (int i = 0; i < 400; ++i) {
        const float t = float(i) * 0.0157F;
        circle.verts.push_back({50 + 40 * std::cos(t), 50 + 40 * std::sin(t)});
        straight.verts.push_back({float(i), 2 * float(i)});
    }
    for (const float tolerance : {0.5F, 1.0F, 5.0F}) {
        const Polyline simple = simplify(circle, tolerance);
        EXPECT_TRUE(simple.closed);
        EXPECT_GE(simple.verts.size(), 3U);
        EXPECT_LT(simple.verts.size(), 60U);
        for (const Vertex& v : circle.verts) EXPECT_LE(distanceTo(simple, v), double(tolerance) + 1e-4);
    }
    EXPECT_EQ(simplify(straight, 0.5F).verts, (std::vector<Vertex>{{0, 0}, {399, 798}}));
}

TEST(EdgeRegions, gapsAreFilledAndInsidesFound)
{
    Map map = mapOf({"..............", "..####..#####.", "..#.........#.", "..#.........#.", "............#.",
                     "..#.........#.", "..###########.", ".............."});
    std::vector<std::int32_t> labels;
    EXPECT_EQ(labelRegions(map.cells, map.width, map.height, labels).size(), 1U);
    EXPECT_GE(fillGaps(map.cells, map.width, map.height, 4), 2);
    const auto regions = labelRegions(map.cells, map.width, map.height, labels);
    ASSERT_EQ(regions.size(), 2U);
    EXPECT_TRUE(regions[0].open);
    EXPECT_FALSE(regions[1].open);
    EXPECT_EQ(regions[1].area, 9 * 4);
    EXPECT_DOUBLE_EQ(regions[1].x, 7);
    EXPECT_DOUBLE_EQ(regions[1].y, 3.5);
    EXPECT_EQ(labels[3 * 14 + 5], 2);
    EXPECT_EQ(labels[1 * 14 + 2], 0);
}

// A disc drawn with soft borders: the edge lies on the circle, far closer than a pixel.
TEST(SubpixelEdges, circle)
{
    FloatPlane image(120, 100);
    for (std::size_t y = 0; y < 100; ++y)
        for (std::size_t x = 0; x < 120; ++x) {
            const double r = std::hypot(double(x) - 60.3, double(y) - 49.6);
            image.row(y)[x] = float(30 + 100 * (0.5 - 0.5 * std::tanh((r - 33.3) / 1.2)));
        }
    std::vector<std::uint8_t> map;
    std::vector<Vertex> positions;
    subpixelEdges(image, 100, 200, 3, map, positions);
    double worst = 0, sum = 0;
    int count = 0;
    for (std::size_t i = 0; i < map.size(); ++i) {
        if (map[i] == 0) continue;
        const double error =
            std::abs(std::hypot(double(positions[i].x) - 60.3, double(positions[i].y) - 49.6) - 33.3);
        worst = std::max(worst, error);
        sum += error;
        ++count;
    }
    EXPECT_GT(count, 180);
    EXPECT_LT(worst, 0.15);
    EXPECT_LT(sum / count, 0.05);
    std::vector<std::uint8_t> swapped;
    subpixelEdges(image, 200, 100, 3, swapped, positions);
    EXPECT_EQ(swapped, map);
    EXPECT_THROW(subpixelEdges(image, 1, 2, 4, map, positions), const char*);
}

TEST(TracingSteps, onAPhotograph)
{
    const Array frame = test::offsetFrame(test::greyOf(test::examplePhoto("img0000.jpg")), 640);
    for (const char* kind : {"ccanny2a", "ccanny2b", "ccanny2c"}) {
        test::Chain chain({kind});
        chain.init(test::geometryOf(
            640, 480, {{"OCV", Struct{{"lp0", 1}, {"clear", 1}, {"trl", 60.0F}, {"trh", 160.0F}}}}));
        chain.arrived.clear();
        const std::string text = test::printed([&] { chain.process(&frame); });
        const auto& arrived = chain.arrived.at(0);
        const auto samples = arrived.frame->elements<std::uint16_t>();
        const auto edges = std::ranges::count(samples, 33023);
        EXPECT_GT(edges, 5000) << kind;
        EXPECT_EQ(edges + std::ranges::count(samples, 32768), 640 * 480);
        const std::string head =
            "              3 order\n            160 trh\n             60 trl\n"
            "            640 a.getX()\n            480 a.getY()\n";
        EXPECT_EQ(text.substr(0, head.size()), head);
        if (std::string(kind) == "ccanny2b") {
            const Array& table = arrived.record["regions"].as<Array>();
            EXPECT_EQ(table.dim(0), 8U);
            EXPECT_GT(table.dim(1), 100U);
            double area = double(edges);
            for (std::size_t i = 0; i < table.dim(1); ++i) area += double(table.elements<float>()[8 * i + 2]);
            EXPECT_EQ(area, 640 * 480);
            continue;
        }
        const StructArray& lines = arrived.record["fvertsArray"].as<StructArray>();
        EXPECT_EQ(text.substr(head.size()), fmt::format("{:15} fvertsArray.size()\n", lines.size()));
        EXPECT_GT(lines.size(), 200U);
        double offGrid = 0;
        for (const varitype& line : lines) {
            const Array& verts = line["verts"].as<Array>();
            EXPECT_EQ(verts.dim(0), 2U);
            EXPECT_GE(verts.dim(1), 2U);
            for (const float v : verts.elements<float>()) offGrid += v != std::floor(v);
            EXPECT_LE(unsigned(line["closed"].as<std::int32_t>()), 1U);
        }
        EXPECT_EQ(offGrid > 1000, std::string(kind) == "ccanny2c");
        if (std::string(kind) == "ccanny2a") {
            EXPECT_EQ(std::ranges::count(samples.first(1280), 33023), 0);
            EXPECT_EQ(std::ranges::count(samples.last(1280), 33023), 0);
        }
        EXPECT_EQ(test::thrownText([&] {
                      chain.process(&frame, {{"fvertsArray", 1}});
                  }),
                  "[fvertsArray] already found");
    }
}

TEST(TracingSteps, tinyFrames)
{
    for (const char* kind : {"ccanny2a", "ccanny2b", "ccanny2c"})
        for (const int size : {0, 1, 3}) {
            test::Chain chain({kind});
            chain.init(test::geometryOf(size, size, {{"OCV", Struct{{"trl", 0.0F}, {"trh", 0.0F}}}}));
            const Array frame(Kind::Ushort, std::uint32_t(size), std::uint32_t(size));
            test::printed([&] { chain.process(&frame); });
            EXPECT_EQ(chain.arrived.size(), 2U);
        }
}

}  // namespace
}  // namespace scansteps
