// Registration under the conditions that scanners meet: accuracy, refusals and honesty of the expected error
// on photographs with known motions and disturbances, beside what is wanted; then the matching score of the
// features and the precision that cneig gains. Prints Markdown tables:
//     registration_conditions_bench FOLDER [--seeds N] [--seed N] [--only TEXT]
// FOLDER and its subfolder "plain" hold photographs, see photographs.sh.
#include <fmt/format.h>

#include <ctime>
#include <filesystem>
#include <set>
#include <string>
#include <utility>

#include "corners/neighbour_filter.h"
#include "disturbed_views.h"
#include "edges/subpixel_edges.h"
#include "registration/register_views.h"

namespace {

using namespace scansteps;
using namespace scansteps::bench;
using namespace scansteps::registration;

constexpr int kMaxBits = 90;  // by which the descriptors of matches may differ

constexpr MotionRange kWide;
constexpr MotionRange kFlat{.perspective = 0};
constexpr MotionRange kNarrow{.angle = 10, .minScale = 0.9, .maxScale = 1.1, .perspective = 0};
constexpr MotionRange kRigid{.angle = 10, .minScale = 1, .maxScale = 1, .perspective = 0};
constexpr MotionRange kCamera{
    .angle = 1, .minScale = 1, .maxScale = 1, .minShift = 1, .maxShift = 15, .perspective = 0};
constexpr MotionRange kZoom{.angle = 10, .minScale = 1.05, .maxScale = 1.15, .perspective = 0};
constexpr MotionRange kShear{
    .angle = 10, .minScale = 0.9, .maxScale = 1.1, .perspective = 0, .shear = 0.06, .minBeyond = 0.6};
constexpr MotionRange kPerspective{
    .angle = 10, .minScale = 0.9, .maxScale = 1.1, .perspective = 1e-4, .minBeyond = 0.6};

struct Case
{
    const char* name;
    const char* step;
    MotionModel model;
    MotionRange motion;
    Disturbance first = none, second = none;
    double occluded = 0;
    double minGood = 0;     // per cent of the pairs within a pixel
    double maxWrong = 0;    // per cent of the pairs reported as known and wrong by more than five pixels
    bool textured = false;  // only the photographs with texture everywhere, with five times the seeds
};

constexpr auto kRange88 = range<88, 185>;
constexpr auto kContrast04 = range<77, 179>;
constexpr double kOne = 100 / 71.0;  // one of 72

const Case kCases[] = {
    {"undisturbed, texture everywhere", "c2rege5", MotionModel::homography, kWide, none, none, 0, 98, 0,
     true},
    {"undisturbed", "c2rege5", MotionModel::homography, kWide, none, brightness},
    {"undisturbed, only polylines left", "ccanny2c, c2rege5", MotionModel::homography, kWide, none,
     brightness},
    {"undisturbed, similarities", "c2rege", MotionModel::similarity, kFlat, none, brightness},
    {"lit from one side", "c2rege5", MotionModel::homography, kWide, none, lightFromOneSide, 0, 75, kOne},
    {"vignette 0.6", "c2rege5", MotionModel::homography, kWide, none, vignette, 0, 80, kOne},
    {"gamma 2.2", "c2rege5", MotionModel::homography, kWide, none, gamma22, 0, 80, 0},
    {"30 % occluded", "c2rege5", MotionModel::homography, kWide, none, none, 0.3, 80, kOne},
    {"50 % occluded", "c2rege5", MotionModel::homography, kWide, none, none, 0.5, 60, kOne},
    {"grey 88 to 185", "c2rege5", MotionModel::homography, kWide, kRange88, kRange88, 0, 70, 0},
    {"grey 88 to 185, 1 to 15 px", "ccanny5old", MotionModel::rigid, kCamera, kRange88, kRange88, 0, 70, 0},
    {"grey 88 to 185, 1 to 15 px", "ccanny5", MotionModel::similarity, kCamera, kRange88, kRange88, 0, 70, 0},
    {"grey 88 to 185, 1 to 15 px", "ccanny7", MotionModel::affine, kCamera, kRange88, kRange88, 0, 70, 0},
    {"contrast 0.4", "c2rege5", MotionModel::homography, kWide, none, kContrast04, 0, 70, kOne},
    {"blur 3 px", "c2rege5", MotionModel::homography, kWide, none, blur3, 0, 50, kOne},
    {"motion blur 11 px", "c2rege5", MotionModel::homography, kWide, none, motionBlur11, 0, 50, kOne},
    {"rigid", "ccanny5old", MotionModel::rigid, kRigid, none, brightness},
    {"similarity", "ccanny5", MotionModel::similarity, kNarrow, none, brightness},
    {"affine", "ccanny7", MotionModel::affine, kNarrow, none, brightness},
    {"zoom 1.05 to 1.15", "ccanny5old", MotionModel::rigid, kZoom, none, none, 0, 0, 2},
    {"shear 0.04 to 0.06", "ccanny5", MotionModel::similarity, kShear, none, none, 0, 0, 2},
    {"perspective", "c2rege", MotionModel::similarity, kPerspective, none, none, 0, 0, 2},
    {"perspective", "ccanny7", MotionModel::affine, kPerspective, none, none, 0, 0, 2},
};

struct Options
{
    std::string folder, only;
    int seeds = 4;
    unsigned seed = 9000;
};

struct Picture
{
    std::string name;
    Photograph photograph;
    bool plain;
};

grey::GreyView viewOf(const std::vector<std::uint8_t>& grey)
{
    return {grey.data(), kWidth, kHeight, kWidth};
}

double cpuMilliseconds()
{
    return 1e3 * double(std::clock()) / CLOCKS_PER_SEC;
}

double quantile(std::vector<double> values, double q)
{
    if (values.empty()) return 0;
    std::ranges::sort(values);
    return values[std::min(values.size() - 1, std::size_t(q * double(values.size())))];
}

struct Tally
{
    int pairs = 0, good = 0, refused = 0, wrong = 0, honest = 0;
    double milliseconds = 0;
    std::vector<double> errors, ratios;  // of the pairs reported as known; true to expected error

    void add(const Registration& r, const Eigen::Matrix3d& truth)
    {
        ++pairs;
        if (r.inliers == 0) {
            ++refused;
            return;
        }
        const double error = test::cornerError(r.motion, truth);
        errors.push_back(error);
        ratios.push_back(error / r.deviation);
        good += error <= 1;
        wrong += !(error <= 5);
        honest += error <= 3 * r.deviation;
    }
    void print(const Case& c) const
    {
        const double n = std::max(pairs, 1);
        const double known = std::max(double(errors.size()), 1.0);
        std::string target, miss;
        if (c.minGood > 0) target = fmt::format("≥ {:.0f} %, ", c.minGood);
        if (c.minGood > 0 || c.maxWrong > 0)
            target += fmt::format("wrong ≤ {:.0f}", std::floor(c.maxWrong * n / 100));
        if (!target.empty() && 100 * good / n < c.minGood)
            miss = fmt::format("{:.0f} points", c.minGood - 100 * good / n);
        if (!target.empty() && 100 * wrong / n > c.maxWrong)
            miss += fmt::format("{}{} wrong", miss.empty() ? "" : ", ", wrong);
        fmt::print(
            "| {} | `{}` | {} | {:.1f} % | {} | {} | {:.3f} | {:.0f} % | {:.2f} | {:.0f} | {} | {} |\n",
            c.name, c.step, pairs, 100 * good / n, refused, wrong, quantile(errors, 0.5),
            100 * honest / known, quantile(ratios, 0.5), milliseconds / n, target, miss);
        std::fflush(stdout);
    }
};

struct Preparation
{
    corners::CornerDetector detector;

    void operator()(const std::vector<std::uint8_t>& grey, const Case& c, PreparedView& view)
    {
        prepareView(detector, viewOf(grey), registrationCorners(), view);
        if (std::string(c.step) == "ccanny2c, c2rege5") alignByEdges(linesOf(view.full), view);
    }

  private:
    static edges::Polylines linesOf(const grey::GreyImage& smooth)
    {
        edges::FloatPlane plane(kWidth, kHeight);
        for (int y = 0; y < kHeight; ++y)
            std::copy_n(smooth.view().row(y), kWidth, plane.row(std::size_t(y)));
        edges::SubpixelPlanes planes;
        edges::EdgeBits edges;
        std::vector<edges::Vertex> positions;
        edges::subpixelEdges(plane, 40, 100, 3, planes, edges, positions);
        edges::PathTracer tracer;
        edges::Polylines lines;
        edges::tracePolylines(edges, tracer, lines, positions);
        return lines;
    }
};

// A motion that leaves at least six tenths of the view visible.
Eigen::Matrix3d visibleMotion(std::mt19937& random, const MotionRange& motion)
{
    for (;;)
        if (Eigen::Matrix3d truth = randomMotion(random, motion); test::overlap(truth) >= 0.6) return truth;
}

void measure(const Case& c, const std::vector<Picture>& pictures, const Options& options)
{
    Tally tally;
    Preparation prepare;
    for (std::size_t k = 0; k < pictures.size(); ++k) {
        if (c.textured && pictures[k].plain) continue;
        const GreyPlane still = pictures[k].photograph.view(Eigen::Matrix3d::Identity());
        const GreyPlane other =
            pictures[(k + 1) % pictures.size()].photograph.view(Eigen::Matrix3d::Identity());
        for (int i = 0; i < (c.textured ? 5 : 1) * options.seeds; ++i) {
            std::mt19937 random(options.seed + unsigned(i));
            const Eigen::Matrix3d truth = visibleMotion(random, c.motion);
            GreyPlane first = still;
            GreyPlane second = pictures[k].photograph.view(truth.inverse());
            if (c.occluded > 0) occlude(second, c.occluded, other, random);
            c.first(first, random);
            c.second(second, random);
            const auto a = photographed(first, 5, random);
            const auto b = photographed(second, 5, random);
            PreparedView viewA, viewB;
            const double start = cpuMilliseconds();
            prepare(a, c, viewA);
            prepare(b, c, viewB);
            const Registration r = registerViews(viewA, viewB, c.model);
            tally.milliseconds += cpuMilliseconds() - start;
            tally.add(r, truth);
        }
    }
    tally.print(c);
}

bool isVisible(const Eigen::Vector2d& p)
{
    return p.x() >= 24 && p.y() >= 24 && p.x() < kWidth - 24 && p.y() < kHeight - 24;
}

// A place with several orientations counts once. Its features follow one another.
int visibleCount(const std::vector<corners::CornerFeature>& features, const Eigen::Matrix3d& toOther)
{
    int count = 0;
    const corners::CornerFeature* before = nullptr;
    for (const corners::CornerFeature& f : features) {
        const bool isSame = before != nullptr && before->x == f.x && before->y == f.y;
        count += !isSame && isVisible(test::mapped(toOther, double(f.x), double(f.y)));
        before = &f;
    }
    return count;
}

struct Matched
{
    int all = 0, correct = 0;  // correct: within three pixels

    void add(const std::vector<corners::CornerFeature>& a, const std::vector<corners::CornerFeature>& b,
             const Eigen::Matrix3d& truth)
    {
        std::vector<Match> matches;
        matchFeatures(DescriptorIndex(a), DescriptorIndex(b), kMaxBits, matches);
        std::set<std::pair<float, float>> places;  // of the first view, each counted once
        for (const Match& m : matches) {
            const Eigen::Vector2d p = test::mapped(truth, double(a[m.first].x), double(a[m.first].y));
            if (!isVisible(p)) continue;
            const bool isRight =
                (p - Eigen::Vector2d(double(b[m.second].x), double(b[m.second].y))).norm() <= 3;
            if (isRight && !places.emplace(a[m.first].x, a[m.first].y).second) continue;
            ++all;
            correct += isRight;
        }
    }
    double precision() const { return double(correct) / std::max(all, 1); }
};

// Two views of each textured photograph, as `disturb` leaves the second.
template <class Use>
int forEachWidePair(const std::vector<Picture>& pictures, const Options& options, Disturbance disturb,
                    Use use)
{
    int pairs = 0;
    for (const Picture& picture : pictures) {
        if (picture.plain) continue;
        const GreyPlane still = picture.photograph.view(Eigen::Matrix3d::Identity());
        for (int i = 0; i < options.seeds; ++i, ++pairs) {
            std::mt19937 random(options.seed + unsigned(i));
            const Eigen::Matrix3d truth = visibleMotion(random, kWide);
            GreyPlane second = picture.photograph.view(truth.inverse());
            disturb(second, random);
            const auto a = photographed(still, 5, random);
            const auto b = photographed(second, 5, random);
            use(viewOf(a), viewOf(b), truth);
        }
    }
    return pairs;
}

// Correct matches over the features of the view that has fewer in sight of the other: the score of K.
// Mikolajczyk and C. Schmid, "A Performance Evaluation of Local Descriptors", PAMI 2005.
void measureMatching(const std::vector<Picture>& pictures, const Options& options)
{
    double sum = 0;
    Matched matched;
    corners::CornerDetector detector;
    const int pairs =
        forEachWidePair(pictures, options, blurAndGamma, [&](auto a, auto b, const auto& truth) {
            const auto first = detector.detect(a, registrationCorners());
            const auto second = detector.detect(b, registrationCorners());
            const int most = std::min(visibleCount(first, truth), visibleCount(second, truth.inverse()));
            const int before = matched.correct;
            matched.add(first, second, truth);
            sum += double(matched.correct - before) / std::max(most, 1);
        });
    const double score = 100 * sum / std::max(pairs, 1);
    fmt::print(
        "\n| features of the registration, {} wide pairs with blur 1.5 px and gamma 2.2 | value | target | "
        "miss "
        "|\n|---|---|---|---|\n",
        pairs);
    fmt::print("| matching score: correct matches of visible features | {:.1f} % | ≥ 60 % | {} |\n", score,
               score < 60 ? fmt::format("{:.0f} points", 60 - score) : "");
    fmt::print("| precision of the matches | {:.3f} | | |\n", matched.precision());
}

std::vector<corners::CornerFeature> filtered(const std::vector<corners::CornerFeature>& features,
                                             const corners::NeighbourFilter& settings)
{
    std::vector<corners::CornerFeature> out;
    for (const std::uint32_t i : corners::withSimilarNeighbours(features, settings))
        out.push_back(features[i]);
    return out;
}

void measureNeighbours(const std::vector<Picture>& pictures, const Options& options)
{
    Matched before, after;
    corners::CornerDetector detector;
    const int pairs = forEachWidePair(pictures, options, brightness, [&](auto a, auto b, const auto& truth) {
        const auto first = detector.detect(a, corners::CornerSettings{});
        const auto second = detector.detect(b, corners::CornerSettings{});
        before.add(first, second, truth);
        after.add(filtered(first, {}), filtered(second, {}), truth);
    });
    const double gained = after.precision() - before.precision();
    const double lost = 100 - 100.0 * after.correct / std::max(before.correct, 1);
    fmt::print("\n| features of `ccorner5`, {} wide pairs | value | target | miss |\n|---|---|---|---|\n",
               pairs);
    fmt::print("| precision of the matches | {:.3f} | | |\n", before.precision());
    fmt::print("| precision gained by `cneig` | {:+.3f} | ≥ 0.1 | {} |\n", gained,
               gained < 0.1 ? fmt::format("{:.3f}", 0.1 - gained) : "");
    fmt::print("| correct matches lost by `cneig` | {:.1f} % | ≤ 10 % | {} |\n", lost,
               lost > 10 ? fmt::format("{:.0f} points", lost - 10) : "");
}

// The share of the strongest features of the first view, as far as the second shows them, with one of the
// strongest of the second within two pixels.
double foundAgain(const std::vector<corners::CornerFeature>& first,
                  const std::vector<corners::CornerFeature>& second, const Eigen::Matrix3d& truth)
{
    constexpr std::size_t kStrongest = 300;
    int visible = 0, again = 0;
    for (std::size_t i = 0; i < std::min(first.size(), kStrongest); ++i) {
        const Eigen::Vector2d p = test::mapped(truth, double(first[i].x), double(first[i].y));
        if (!isVisible(p)) continue;
        ++visible;
        again +=
            std::any_of(second.begin(), second.begin() + std::ptrdiff_t(std::min(second.size(), kStrongest)),
                        [&](const corners::CornerFeature& f) {
                            return std::hypot(double(f.x) - p.x(), double(f.y) - p.y()) <= 2;
                        });
    }
    return double(again) / std::max(visible, 1);
}

void measureRepeatability(const std::vector<Picture>& pictures, const Options& options)
{
    fmt::print("\n| the 300 strongest features of wide pairs | found again within 2 px |\n|---|---|\n");
    for (const auto kind : {corners::CornerKind::minEigenvalue, corners::CornerKind::hessian}) {
        double sum = 0;
        corners::CornerDetector detector;
        corners::CornerSettings settings;
        settings.kind = kind;
        const int pairs =
            forEachWidePair(pictures, options, brightness, [&](auto a, auto b, const auto& truth) {
                const auto first = detector.detect(a, settings);
                sum += foundAgain(first, detector.detect(b, settings), truth);
            });
        fmt::print("| {} of `ccorner5` | {:.1f} % |\n",
                   kind == corners::CornerKind::hessian ? "blobs" : "corners",
                   100 * sum / std::max(pairs, 1));
    }
}

std::vector<Picture> load(const std::string& folder)
{
    std::vector<std::string> names;
    for (const char* sub : {"", "plain"})
        if (const auto path = std::filesystem::path(folder) / sub; std::filesystem::is_directory(path))
            for (const auto& entry : std::filesystem::directory_iterator(path))
                if (entry.path().extension() == ".jpg") names.push_back(entry.path().string());
    std::ranges::sort(names);
    std::vector<Picture> pictures;
    for (const std::string& name : names) {
        const std::filesystem::path path(name);
        pictures.push_back({path.stem().string(), Photograph(test::loadJpeg(name)),
                            path.parent_path().filename() == "plain"});
    }
    return pictures;
}

Options parse(int count, char** words)
{
    Options options;
    for (int i = 1; i < count; ++i) {
        const std::string word = words[i];
        if (word == "--seeds" && i + 1 < count)
            options.seeds = std::atoi(words[++i]);
        else if (word == "--seed" && i + 1 < count)
            options.seed = unsigned(std::atoi(words[++i]));
        else if (word == "--only" && i + 1 < count)
            options.only = words[++i];
        else
            options.folder = word;
    }
    return options;
}

}  // namespace

int main(int count, char** words)
{
    const Options options = parse(count, words);
    const std::vector<Picture> pictures = load(options.folder);
    if (pictures.empty()) {
        fmt::print(stderr,
                   "registration_conditions_bench: no photographs; see bench/registration/photographs.sh\n");
        return 2;
    }
    fmt::print(
        "| condition | step | pairs | ≤ 1 px | refused | > 5 px | median, px | true ≤ 3 × expected | median "
        "of "
        "true/expected | ms | target | miss |\n|---|---|---|---|---|---|---|---|---|---|---|---|\n");
    for (const Case& c : kCases)
        if (std::string(c.name).find(options.only) != std::string::npos) measure(c, pictures, options);
    if (options.only.empty() || options.only == "matching") measureMatching(pictures, options);
    if (options.only.empty() || options.only == "repeatability") measureRepeatability(pictures, options);
    if (options.only.empty() || options.only == "neighbours") measureNeighbours(pictures, options);
}
