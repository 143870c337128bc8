// Pixel chains, polylines, enclosed regions and sub-pixel edges, and the steps ccanny2a, ccanny2b and
// ccanny2c.
#include "edges/polyline.h"

#include <fmt/format.h>

#include "edges/canny.h"
#include "edges/edge_regions.h"
#include "edges/subpixel_edges.h"
#include "support/images.h"
#include "support/test.h"

namespace scansteps {
namespace {

using namespace edges;

EdgeBits edgesOf(const std::vector<std::string>& rows)
{
    EdgeBits edges;
    edges.resize(rows[0].size(), rows.size());
    for (std::size_t y = 0; y < rows.size(); ++y)
        for (std::size_t x = 0; x < rows[y].size(); ++x)
            if (rows[y][x] == '#') edges.setEdge(x, y);
    return edges;
}

TEST(Polylines, pathsEndAtEndsAndJunctions)
{
    const struct
    {
        std::vector<std::string> rows;
        std::vector<std::size_t> lengths;  // of the open paths, then of the closed ones
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
    PathTracer tracer;  // reused for images of different sizes
    for (const auto& c : cases) {
        std::vector<std::size_t> open, closed;
        const PixelPaths& paths = tracer.trace(edgesOf(c.rows));
        for (std::size_t i = 0; i < paths.size(); ++i)
            (paths[i].closed ? closed : open).push_back(paths[i].items.size());
        std::ranges::sort(open);
        std::vector<std::size_t> all = open;
        all.insert(all.end(), closed.begin(), closed.end());
        EXPECT_EQ(all, c.lengths) << c.rows[0];
        EXPECT_EQ(closed.size(), c.closed) << c.rows[0];
    }
}

// Every link between neighbouring pixels lies in exactly one path, whatever the map.
TEST(Polylines, everyLinkOnce)
{
    std::mt19937 random(9);
    PathTracer tracer;
    for (int round = 0; round < 300; ++round) {
        const int width = round % 3 == 0 ? 60 + int(random() % 10) : 1 + int(random() % 20);
        const int height = 1 + int(random() % 20);
        std::vector<std::string> rows(std::size_t(height), std::string(std::size_t(width), '.'));
        const auto share = 2 + random() % 5;
        for (auto& row : rows)
            for (char& c : row) c = random() % share == 0 ? '#' : '.';
        const auto at = [&](int x, int y) {
            return x >= 0 && y >= 0 && x < width && y < height && rows[std::size_t(y)][std::size_t(x)] == '#';
        };
        std::set<std::pair<int, int>> links;
        for (int y = 0; y < height; ++y)
            for (int x = 0; x < width; ++x)
                for (const auto& [dx, dy] : {std::pair{1, 0}, {0, 1}, {1, 1}, {-1, 1}})
                    if (at(x, y) && at(x + dx, y + dy) &&
                        (dx * dy == 0 || (!at(x + dx, y) && !at(x, y + dy))))
                        links.insert({y * width + x, (y + dy) * width + x + dx});
        std::map<std::pair<int, int>, int> found;
        const PixelPaths& paths = tracer.trace(edgesOf(rows));
        for (std::size_t k = 0; k < paths.size(); ++k) {
            const auto [items, closed] = paths[k];
            for (std::size_t i = closed ? 0 : 1; i < items.size(); ++i)
                ++found[std::minmax(int(items[(i > 0 ? i : items.size()) - 1]), int(items[i]))];
        }
        ASSERT_EQ(found.size(), links.size()) << round;
        for (const auto& [link, times] : found) {
            ASSERT_EQ(times, 1);
            ASSERT_TRUE(links.contains(link));
        }
    }
}

double distanceTo(Polylines::Path line, Vertex p)
{
    double best = 1e9;
    const std::size_t n = line.items.size();
    for (std::size_t i = 0; i + (line.closed ? 0 : 1) < n; ++i) {
        const Vertex a = line.items[i], b = line.items[(i + 1) % n];
        const double dx = double(b.x - a.x), dy = double(b.y - a.y);
        const double t = std::clamp(
            (double(p.x - a.x) * dx + double(p.y - a.y) * dy) / (dx * dx + dy * dy + 1e-30), 0.0, 1.0);
        best = std::min(best, std::hypot(double(p.x - a.x) - t * dx, double(p.y - a.y) - t * dy));
    }
    return best;
}

TEST(Polylines, simplifiedLinesStayWithinTheTolerance)
{
    std::vector<Vertex> circle, straight;
    for (int i = 0; i < 400; ++i) {
        const float t = float(i) * 0.0157F;
        circle.push_back({50 + 40 * std::cos(t), 50 + 40 * std::sin(t)});
        straight.push_back({float(i), 2 * float(i)});
    }
    Polylines lines;
    for (const float tolerance : {0.5F, 1.0F, 5.0F}) {
        simplify({circle, true}, tolerance, lines);
        const auto simple = lines[lines.size() - 1];
        EXPECT_TRUE(simple.closed);
        EXPECT_GE(simple.items.size(), 3U);
        EXPECT_LT(simple.items.size(), 60U);
        for (const Vertex& v : circle) EXPECT_LE(distanceTo(simple, v), double(tolerance) + 1e-4);
    }
    simplify({straight, false}, 0.5F, lines);
    EXPECT_TRUE(std::ranges::equal(lines[3].items, std::vector<Vertex>{{0, 0}, {399, 798}}));
    simplify({std::vector<Vertex>{{0, 0}, {1, 0}, {1, 1}, {0, 1}}, true}, 5, lines);
    EXPECT_TRUE(std::ranges::equal(lines[4].items, std::vector<Vertex>{{0, 0}, {1, 1}})) << "no single point";
}

TEST(EdgeRegions, gapsAreFilledAndInsidesFound)
{
    EdgeBits edges = edgesOf({"..............", "..####..#####.", "..#.........#.", "..#.........#.",
                              "............#.", "..#.........#.", "..###########.", ".............."});
    std::vector<EnclosedRegion> regions;
    enclosedRegions(edges, regions);
    EXPECT_EQ(regions.size(), 1U);
    PathTracer tracer;
    EXPECT_GE(fillGaps(edges, 4, tracer), 2);
    enclosedRegions(edges, regions);
    ASSERT_EQ(regions.size(), 2U);
    EXPECT_TRUE(regions[0].open);
    EXPECT_FALSE(regions[1].open);
    EXPECT_EQ(regions[1].area, 9 * 4);
    EXPECT_DOUBLE_EQ(regions[1].x, 7);
    EXPECT_DOUBLE_EQ(regions[1].y, 3.5);
}

// Compares with a flood fill, in maps whose regions touch from many sides.
TEST(EdgeRegions, asAFloodFillFindsThem)
{
    std::mt19937 random(4);
    for (int round = 0; round < 200; ++round) {
        const int width = 1 + int(random() % 80), height = 1 + int(random() % 12);
        EdgeBits edges;
        edges.resize(std::size_t(width), std::size_t(height));
        std::vector<char> taken(std::size_t(width * height));
        for (int i = 0; i < width * height; ++i)
            if (random() % 5 < 2)
                edges.setEdge(std::size_t(i % width), std::size_t(i / width)), taken[std::size_t(i)] = 1;
        std::vector<EnclosedRegion> found;
        enclosedRegions(edges, found);
        std::size_t next = 0;
        for (int start = 0; start < width * height; ++start) {
            if (taken[std::size_t(start)] != 0) continue;
            ASSERT_LT(next, found.size());
            const EnclosedRegion& r = found[next++];
            int area = 0, left = width, right = -1, bottom = -1, sumX = 0, sumY = 0;
            bool open = false;
            std::vector<int> todo{start};
            taken[std::size_t(start)] = 1;
            while (!todo.empty()) {
                const int x = todo.back() % width, y = todo.back() / width;
                todo.pop_back();
                ++area, sumX += x, sumY += y;
                left = std::min(left, x), right = std::max(right, x), bottom = std::max(bottom, y);
                open = open || x == 0 || y == 0 || x == width - 1 || y == height - 1;
                for (const auto& [u, v] : {std::pair{x - 1, y}, {x + 1, y}, {x, y - 1}, {x, y + 1}})
                    if (u >= 0 && v >= 0 && u < width && v < height &&
                        taken[std::size_t(v * width + u)] == 0) {
                        taken[std::size_t(v * width + u)] = 1;
                        todo.push_back(v * width + u);
                    }
            }
            ASSERT_EQ(r.area, area);
            ASSERT_EQ((std::vector{r.left, r.top, r.right, r.bottom, int(r.open)}),
                      (std::vector{left, start / width, right, bottom, int(open)}));
            ASSERT_DOUBLE_EQ(r.x, double(sumX) / area);
            ASSERT_DOUBLE_EQ(r.y, double(sumY) / area);
        }
        ASSERT_EQ(next, found.size());
    }
}

struct Subpixel
{
    SubpixelPlanes planes;
    EdgeBits edges;
    std::vector<Vertex> positions;

    /// x, y of every edge.
    std::vector<Vertex> found() const
    {
        std::vector<Vertex> all;
        for (std::size_t i = 0; i < positions.size(); ++i)
            if (edges.isEdge(i % edges.width(), i / edges.width())) all.push_back(positions[i]);
        return all;
    }
};

// A disc with soft borders: edges lie on the circle, with sub-pixel accuracy.
TEST(SubpixelEdges, circle)
{
    FloatPlane image(120, 100);
    for (std::size_t y = 0; y < 100; ++y)
        for (std::size_t x = 0; x < 120; ++x) {
            const double r = std::hypot(double(x) - 60.3, double(y) - 49.6);
            image.row(y)[x] = float(30 + 100 * (0.5 - 0.5 * std::tanh((r - 33.3) / 1.2)));
        }
    Subpixel s;
    subpixelEdges(image, 100, 200, 3, s.planes, s.edges, s.positions);
    const std::vector<Vertex> found = s.found();
    double worst = 0, sum = 0;
    for (const Vertex& v : found) {
        const double error = std::abs(std::hypot(double(v.x) - 60.3, double(v.y) - 49.6) - 33.3);
        worst = std::max(worst, error);
        sum += error;
    }
    EXPECT_GT(found.size(), 180U);
    EXPECT_LT(worst, 0.15);
    EXPECT_LT(sum / double(found.size()), 0.05);
    subpixelEdges(image, 200, 100, 3, s.planes, s.edges, s.positions);
    EXPECT_EQ(s.found(), found);
    EXPECT_THROW(subpixelEdges(image, 1, 2, 4, s.planes, s.edges, s.positions), const char*);
}

TEST(SubpixelEdges, everyTargetAsThePlainForm)
{
    std::mt19937 random(2);
    const float odd[] = {0, -0.0F, 1e30F, -3e38F, INFINITY, NAN, 1e-40F};
    for (const auto& [width, height] : {std::pair{1, 1}, {2, 9}, {17, 3}, {64, 8}, {131, 20}})
        for (const int aperture : {3, 5, 7})
            for (const double low : {-1.0, 0.0, 40.0, 2000.0})
                for (const bool hostile : {false, true}) {
                    FloatPlane image{std::uint32_t(width), std::uint32_t(height)};
                    for (std::size_t y = 0; y < std::size_t(height); ++y)
                        for (float& v : image.samples(y))
                            v = hostile && random() % 9 == 0 ? odd[random() % 7] : float(random() % 3 * 40);
                    Subpixel expected, got;
                    edges::scalar::subpixelEdges(image, low, 3 * low, aperture, expected.planes,
                                                 expected.edges, expected.positions);
                    forEachTarget([&] {
                        subpixelEdges(image, low, 3 * low, aperture, got.planes, got.edges, got.positions);
                        const auto a = got.found(), b = expected.found();
                        ASSERT_EQ(a.size(), b.size()) << image.width() << " " << aperture << " " << low;
                        ASSERT_TRUE(
                            std::ranges::equal(std::as_bytes(std::span(a)), std::as_bytes(std::span(b))));
                    });
                }
}

TEST(TracingSteps, onAPhotograph)
{
    const Array frame = offsetFrame(greyOf(examplePhoto("img0000.jpg")), 640);
    for (const char* kind : {"ccanny2a", "ccanny2b", "ccanny2c"}) {
        Chain chain({kind});
        chain.init(geometryOf(640, 480,
                              {{"OCV", Struct{{"lp0", 1}, {"clear", 1}, {"trl", 60.0F}, {"trh", 160.0F}}}}));
        chain.arrived.clear();
        const std::string text = printed([&] { chain.process(&frame); });
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
        EXPECT_EQ(thrownText([&] {
                      chain.process(&frame, {{"fvertsArray", 1}});
                  }),
                  "[fvertsArray] already found");
    }
}

}  // namespace
}  // namespace scansteps
