// Stable regions, compared with a component tree built by definition.
#include "regions/mser.h"

#include "support/images.h"
#include "support/test.h"

namespace scansteps {
namespace {

using namespace regions;

struct Settings
{
    int delta;
    double minArea, maxArea, maxVariation, minDiversity;
};

// A component tree by its definition: threshold at each level, label, link each component to the next
// larger one. Slow, and independent of the flooding algorithm.
class BruteForce
{
  public:
    struct Node
    {
        int level;
        std::set<int> pixels;
        int parent = -1;
        std::vector<int> children;
        double variation = 0;
        bool stable = false;
        int area() const { return int(pixels.size()); }
    };
    std::vector<Node> nodes;
    std::vector<int> kept;

    BruteForce(const std::vector<std::uint8_t>& image, int width, int height, bool eight)
        : area_(width * height)
    {
        for (const int level : std::set<int>(image.begin(), image.end()))
            addLevel(image, width, height, eight, level);
        for (int n = 0; n < int(nodes.size()); ++n)
            if (nodes[n].parent >= 0) nodes[nodes[n].parent].children.push_back(n);
    }
    void choose(const Settings& s)
    {
        kept.clear();
        for (Node& node : nodes) node.stable = false;
        const int root = int(nodes.size()) - 1;
        process(root, s, int(s.minArea * area_), int(s.maxArea * area_));
        save(root, s.minDiversity);
    }

  private:
    int area_;

    void addLevel(const std::vector<std::uint8_t>& image, int width, int height, bool eight, int level)
    {
        std::vector<bool> seen(image.size());
        for (int start = 0; start < int(image.size()); ++start) {
            if (image[start] > level || seen[start]) continue;
            Node node{level, {}, -1, {}};
            std::vector<int> todo{start};
            seen[start] = true;
            while (!todo.empty()) {
                const int p = todo.back();
                todo.pop_back();
                node.pixels.insert(p);
                for (int dy = -1; dy <= 1; ++dy)
                    for (int dx = -1; dx <= 1; ++dx) {
                        const int x = p % width + dx;
                        const int y = p / width + dy;
                        if (x < 0 || y < 0 || x >= width || y >= height || (!eight && dx * dy != 0)) continue;
                        const int q = y * width + x;
                        if (image[q] > level || seen[q]) continue;
                        seen[q] = true;
                        todo.push_back(q);
                    }
            }
            if (std::none_of(node.pixels.begin(), node.pixels.end(),
                             [&](int p) { return image[p] == level; }))
                continue;
            for (Node& other : nodes)
                if (other.parent < 0 && node.pixels.contains(*other.pixels.begin()))
                    other.parent = int(nodes.size());
            nodes.push_back(node);
        }
    }

    void process(int n, const Settings& s, int minArea, int maxArea)
    {
        int p = n;
        while (nodes[p].parent >= 0 && nodes[nodes[p].parent].level - nodes[n].level <= s.delta)
            p = nodes[p].parent;
        Node& node = nodes[n];
        node.variation = double(nodes[p].area() - node.area()) / node.area();
        const bool mayBe = (node.parent < 0 || node.variation <= nodes[node.parent].variation) &&
                           node.area() >= minArea && node.area() <= maxArea &&
                           node.variation <= s.maxVariation;
        for (const int c : node.children) {
            process(c, s, minArea, maxArea);
            if (mayBe && nodes[c].variation > node.variation) node.stable = true;
        }
        if (node.children.empty() && mayBe) node.stable = true;
    }

    void save(int n, double minDiversity)
    {
        Node& node = nodes[n];
        if (node.stable) {
            const int minParent = int(node.area() / (1.0 - minDiversity) + 0.5);
            for (int p = node.parent; p >= 0 && nodes[p].area() < minParent; p = nodes[p].parent)
                if (nodes[p].stable && nodes[p].variation <= node.variation) node.stable = false;
        }
        if (node.stable) {
            const int maxChild = int(node.area() * (1.0 - minDiversity) + 0.5);
            const std::function<bool(int)> accepted = [&](int c) {
                const Node& child = nodes[c];
                if (child.area() <= maxChild) return true;
                if (child.stable && child.variation < node.variation) return false;
                return std::all_of(child.children.begin(), child.children.end(), accepted);
            };
            node.stable = std::all_of(node.children.begin(), node.children.end(), accepted);
        }
        if (node.stable) kept.push_back(n);
        for (const int c : node.children) save(c, minDiversity);
    }
};

using Key = std::tuple<int, int, double, std::array<double, 5>>;

std::vector<std::uint8_t> randomImage(std::mt19937& random, int width, int height)
{
    const int levels = std::vector{2, 3, 8, 40, 256}[random() % 5];
    const int step = 256 / levels;
    std::vector<std::uint8_t> image(std::size_t(width * height));
    for (auto& v : image) v = std::uint8_t(int(random() % unsigned(levels)) * step);
    if (random() % 2)  // runs of equal samples make larger regions
        for (std::size_t i = 1; i < image.size(); ++i)
            if (random() % 3) image[i] = image[i - 1];
    return image;
}

TEST(Mser, equalsBruteForceTree)
{
    std::mt19937 random(7);
    std::size_t total = 0;
    for (int round = 0; round < 120; ++round) {
        const int width = 1 + int(random() % 18);
        const int height = 1 + int(random() % 14);
        const int area = width * height;
        const std::vector<std::uint8_t> image = randomImage(random, width, height);
        const Settings all[] = {
            {2, MSER::fractionOf(std::min(9, area / 10), area), 0.2, 0.7, 0.33},
            {1, MSER::fractionOf(std::min(4, area / 10), area), 0.6, 0.7, 0.33},
            {1, MSER::fractionOf(std::min(9, area / 2), area), 1.0, 0.2, 0.33},
            {1, MSER::fractionOf(std::min(4, area / 11), area), 0.1, 0.7, 0.33},
            {20, 0.0, 1.0, 5.0, 0.9},
            {INT_MAX, 0.0, 1.0, 1e9, 0.0},
        };
        for (const bool eight : {false, true}) {
            BruteForce expected(image, width, height, eight);
            for (const Settings& s : all) {
                expected.choose(s);
                std::multiset<Key> wanted;
                for (const int n : expected.kept) {
                    const auto& node = expected.nodes[std::size_t(n)];
                    std::array<double, 5> m{};
                    for (const int p : node.pixels) {
                        const double x = p % width, y = p / width;
                        m[0] += x, m[1] += y, m[2] += x * x, m[3] += x * y, m[4] += y * y;
                    }
                    wanted.insert({node.level, node.area(), node.variation, m});
                }
                MSER detector(s.delta, s.minArea, s.maxArea, s.maxVariation, s.minDiversity, eight);
                std::vector<Region> regions;
                detector(image, width, height, regions);
                std::multiset<Key> found;
                for (const Region& r : regions) {
                    found.insert({r.level_, r.area_, r.variation_, r.moments_});
                    EXPECT_EQ(image[std::size_t(r.pixel_)], r.level_);
                    EXPECT_TRUE(r.stable_);
                }
                ASSERT_EQ(found, wanted) << "round " << round << " eight " << eight << " delta " << s.delta;
                total += found.size();
            }
        }
    }
    EXPECT_GT(total, 1000U);
}

TEST(Mser, parentsComeBeforeChildrenAndMemoryIsReused)
{
    const test::Image photo = examplePhoto("img0000.jpg");
    const std::vector<std::uint8_t> grey = greyOf(photo);
    MSER detector(1, 4.0 / double(grey.size()), 0.6, 0.7, 0.33, true);
    std::vector<Region> first, second;
    detector(grey, photo.width, photo.height, first);
    detector(grey, photo.width, photo.height, second);
    ASSERT_EQ(first.size(), second.size());
    ASSERT_GT(first.size(), 200U);
    std::map<std::pair<int, int>, std::size_t> position;  // of a region by seed and level
    for (std::size_t i = 0; i < second.size(); ++i) position[{second[i].pixel_, second[i].level_}] = i;
    for (std::size_t i = 0; i < second.size(); ++i) {
        EXPECT_EQ(first[i].moments_, second[i].moments_);
        for (const Region* p = second[i].parent_; p; p = p->parent_) {
            const auto at = position.find({p->pixel_, p->level_});
            if (at != position.end()) {
                EXPECT_LT(at->second, i);
            }
        }
    }
}

TEST(Mser, areaBoundsAreExact)
{
    for (const int side : {1023, 1024, 1025}) {
        std::vector<std::uint8_t> image(std::size_t(2000 * 3), 200);
        std::fill_n(image.begin() + 2000, side, std::uint8_t{10});
        MSER detector(1, MSER::fractionOf(9, 6000), MSER::fractionOf(1024, 6000), 0.2, 0.33, true);
        std::vector<Region> regions;
        detector(image, 2000, 3, regions);
        EXPECT_EQ(regions.size(), side <= 1024 ? 1U : 0U) << side;
    }
    for (int area = 1; area < 5000; ++area)
        for (const int pixels : {1, 4, 9, 1024})
            if (pixels < area) {
                ASSERT_EQ(int(MSER::fractionOf(pixels, area) * area), pixels);
            }
}

TEST(Mser, constantImageIsOneRegion)
{
    const std::vector<std::uint8_t> image(50 * 40, 77);
    std::vector<Region> regions;
    MSER(1, 0.0, 1.0, 0.2, 0.33, false)(image, 50, 40, regions);
    ASSERT_EQ(regions.size(), 1U);
    EXPECT_EQ(regions[0].area_, 2000);
    EXPECT_EQ(regions[0].moments_[0], 49 * 50 / 2 * 40);
    MSER(1, 0.0, 0.5, 0.2, 0.33, false)(image, 50, 40, regions);
    EXPECT_EQ(regions.size(), 1U);
    MSER(1, 0.0, 0.5, 0.2, 0.33, false)({}, 0, 40, regions);
    EXPECT_THROW(MSER(1, 0.0, 0.5, 0.2, 0.33, false)(image, 50, 41, regions), const char*);
}

TEST(Mser, ellipseOfATiltedBar)
{
    std::vector<std::uint8_t> image(100 * 100, 255);
    for (int i = 20; i < 80; ++i)
        for (int d = -2; d <= 2; ++d) image[std::size_t((i / 2 + 20 + d) * 100 + i)] = 0;
    std::vector<Region> regions;
    MSER(1, 0.0, 0.5, 0.2, 0.33, true)(image, 100, 100, regions);
    ASSERT_EQ(regions.size(), 1U);
    const RegionEllipse e = ellipseOf(regions[0]);
    EXPECT_NEAR(e.x, 49.5, 1e-9);
    EXPECT_NEAR(e.y, 44.5, 0.3);
    EXPECT_NEAR(e.angle, 26.6, 0.5);
    EXPECT_NEAR(e.major, 38.7, 0.5);
    EXPECT_LT(e.minor, 4.0);
}

TEST(Mser, rejectsBadSettings)
{
    const struct
    {
        Settings s;
        const char* text;
    } cases[] = {
        {{0, 0.0, 1.0, 0.2, 0.3}, "delta > 0"},          {{1, -0.1, 1.0, 0.2, 0.3}, "minArea >= 0.0"},
        {{1, 0.0, 1.1, 0.2, 0.3}, "maxArea <= 1.0"},     {{1, 0.5, 0.5, 0.2, 0.3}, "minArea < maxArea"},
        {{1, 0.0, 1.0, 0.0, 0.3}, "maxVariation > 0.0"}, {{1, 0.0, 1.0, 0.2, -0.1}, "minDiversity >= 0.0"},
        {{1, 0.0, 1.0, 0.2, 1.0}, "minDiversity < 1.0"},
    };
    for (const auto& [s, text] : cases)
        EXPECT_THAT(thrownText([&, s = s] {
                        MSER(s.delta, s.minArea, s.maxArea, s.maxVariation, s.minDiversity, true);
                    }),
                    StartsWith(std::string(text) + " mser "));
}

}  // namespace
}  // namespace scansteps
