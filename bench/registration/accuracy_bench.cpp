// Accuracy of the registration on warped photographs with known ground truth, and repeatability of the
// features (columns "corners" and "blobs" for the two responses; only the first task measures blobs). Prints
// a table for the example photographs, or for those named on the command line:
//     registration_accuracy_bench [--pairs N] [--seed N] [picture.jpg ...]
#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <ctime>
#include <string>

#include "../../tests/support/warp.h"
#include "registration/edge_support.h"
#include "registration/register_views.h"

namespace {

using namespace scansteps;
using namespace scansteps::corners;
using namespace scansteps::grey;
using namespace scansteps::registration;

double cpuMilliseconds()
{
    return 1e3 * double(std::clock()) / CLOCKS_PER_SEC;
}

GreyView viewOf(const std::vector<std::uint8_t>& grey)
{
    return {grey.data(), test::kWarpWidth, test::kWarpHeight, test::kWarpWidth};
}

// Share of the 300 strongest features of one view, of those visible in both views, that have one of the 300
// strongest features of the other view within two pixels.
double repeatability(const std::vector<CornerFeature>& a, const std::vector<CornerFeature>& b,
                     const Eigen::Matrix3d& truth)
{
    const auto strongest = [](const std::vector<CornerFeature>& features, const Eigen::Matrix3d& toOther,
                              bool asSeenThere) {
        std::vector<Eigen::Vector2d> points;
        for (const CornerFeature& f : features) {
            const Eigen::Vector2d p = test::mapped(toOther, double(f.x), double(f.y));
            if (p.x() < 24 || p.y() < 24 || p.x() >= test::kWarpWidth - 24 || p.y() >= test::kWarpHeight - 24)
                continue;
            points.push_back(asSeenThere ? p : Eigen::Vector2d(double(f.x), double(f.y)));
            if (points.size() == 300) break;
        }
        return points;
    };
    const auto from = strongest(a, truth, true);
    const auto to = strongest(b, truth.inverse(), false);
    std::size_t again = 0;
    for (const auto& p : from)
        again += std::ranges::any_of(to, [&](const auto& q) { return (p - q).norm() <= 2; });
    return from.empty() ? 0 : double(again) / double(from.size());
}

// The points at which grey values are compared, or the drawing compared instead.
enum class Support
{
    Steepest,  // the steepest pixels, as c2rege and the ccanny5 group do
    Edges,     // points on edges, as c2rege5 does
    Drawn      // drawn edges, as c2rege5 does after a step that produces polylines and draws them
};

struct Task
{
    const char* name;
    MotionModel model;
    test::WarpRange range;
    Support support = Support::Steepest;
    bool blobs = false;  // also measure the other response
};

void chooseSupport(Support support, PreparedView& view)
{
    static EdgeFinder finder;
    if (support == Support::Edges)
        view.support = pointsOnEdges(finder.edgesOf(view.full.view()), view.full.view());
    if (support == Support::Drawn) alignByEdges(finder.edgesOf(view.full.view()), view);
}

struct Tally
{
    int pairs = 0, good = 0, refused = 0, wrong = 0;
    double repeat = 0, repeatBlobs = 0, features = 0, matches = 0, prepare = 0, registering = 0;
    std::vector<double> errors;

    void add(const Tally& other)
    {
        pairs += other.pairs, good += other.good, refused += other.refused, wrong += other.wrong;
        repeat += other.repeat, repeatBlobs += other.repeatBlobs, features += other.features,
            matches += other.matches;
        prepare += other.prepare, registering += other.registering;
        errors.insert(errors.end(), other.errors.begin(), other.errors.end());
    }
    void print(const std::string& name) const
    {
        std::vector<double> sorted = errors;
        std::ranges::sort(sorted);
        const auto quantile = [&](double q) {
            return sorted.empty()
                       ? 0.0
                       : sorted[std::min(sorted.size() - 1, std::size_t(q * double(sorted.size())))];
        };
        const double n = std::max(pairs, 1);
        fmt::print(
            "{:<24}{:>6}{:>9.0f}{:>9.1f}%{:>10}{:>9.0f}{:>9.1f}%{:>9}{:>7}{:>9.3f}{:>9.3f}{:>9.2f}{:>9.2f}"
            "\n",
            name, pairs, features / n, 100 * repeat / n,
            repeatBlobs > 0 ? fmt::format("{:.1f}%", 100 * repeatBlobs / n) : "-", matches / n,
            100 * good / n, refused, wrong, quantile(0.5), quantile(0.95), prepare / n, registering / n);
    }
};

Tally measure(const test::WarpSource& source, const Task& task, int pairs, unsigned seed)
{
    Tally tally;
    CornerDetector detector;
    CornerSettings blobs;
    blobs.kind = CornerKind::hessian;
    for (unsigned i = 0; tally.pairs < pairs; ++i) {
        const test::WarpedPair pair = source.pair(seed + i, task.range);
        if (test::overlap(pair.truth) < 0.6) continue;
        ++tally.pairs;
        PreparedView a, b;
        const double start = cpuMilliseconds();
        prepareView(detector, viewOf(pair.first), registrationCorners(), a);
        prepareView(detector, viewOf(pair.second), registrationCorners(), b);
        chooseSupport(task.support, a);
        chooseSupport(task.support, b);
        const double middle = cpuMilliseconds();
        const Registration r = registerViews(a, b, task.model);
        tally.registering += cpuMilliseconds() - middle;
        tally.prepare += middle - start;
        tally.features += double(a.features.size());
        tally.matches += double(r.matches.size());
        tally.repeat += repeatability(a.features, b.features, pair.truth);
        if (task.blobs) {
            const std::vector<CornerFeature> first = detector.detect(viewOf(pair.first), blobs);
            tally.repeatBlobs +=
                repeatability(first, detector.detect(viewOf(pair.second), blobs), pair.truth);
        }
        const double error = test::cornerError(r.motion, pair.truth);
        if (r.inliers == 0)
            ++tally.refused;
        else
            tally.errors.push_back(error);
        tally.good += r.inliers > 0 && error <= 1;
        tally.wrong += r.inliers > 0 && error > 5;
    }
    return tally;
}

}  // namespace

int main(int count, char** words)
{
    int pairs = 25;
    unsigned seed = 1;
    std::vector<std::string> pictures;
    for (int i = 1; i < count; ++i) {
        if (std::strcmp(words[i], "--pairs") == 0 && i + 1 < count)
            pairs = std::atoi(words[++i]);
        else if (std::strcmp(words[i], "--seed") == 0 && i + 1 < count)
            seed = unsigned(std::atoi(words[++i]));
        else
            pictures.emplace_back(words[i]);
    }
    if (pictures.empty())
        for (const char* name : {"coffee", "chelsea", "rocket", "astronaut"})
            pictures.push_back(test::examplePath(std::string("photo_") + name + ".jpg"));

    const test::WarpRange wide;
    test::WarpRange narrow;
    narrow.angle = 10, narrow.minScale = 0.9, narrow.maxScale = 1.1, narrow.perspective = 0;
    test::WarpRange rigid = narrow;
    rigid.minScale = rigid.maxScale = 1;
    test::WarpRange flat = wide;
    flat.perspective = 0;
    const Task tasks[] = {
        {"homography, wide (c2rege5)", MotionModel::homography, wide, Support::Edges, true},
        {"homography, wide, drawn edges (c2rege5)", MotionModel::homography, wide, Support::Drawn},
        {"homography, wide, steepest pixels", MotionModel::homography, wide},
        {"similarity, wide (c2rege)", MotionModel::similarity, flat},
        {"rigid, narrow (ccanny5old)", MotionModel::rigid, rigid},
        {"similarity, narrow (ccanny5)", MotionModel::similarity, narrow},
        {"affine, narrow (ccanny7)", MotionModel::affine, narrow}};
    for (const Task& task : tasks) {
        fmt::print(
            "{}: rotation ±{}°, scale {} to {}, shift ±{} of the width, perspective ±{}, brightness ±{}, "
            "noise {}\n",
            task.name, task.range.angle, task.range.minScale, task.range.maxScale, task.range.shift,
            task.range.perspective, task.range.brightness, task.range.noise);
        fmt::print("{:<24}{:>6}{:>9}{:>10}{:>10}{:>9}{:>10}{:>9}{:>7}{:>9}{:>9}{:>9}{:>9}\n", "picture",
                   "pairs", "features", "corners", "blobs", "matches", "<= 1 px", "refused", "> 5 px",
                   "median", "95 %", "ms prep", "ms reg");
        Tally all;
        for (const std::string& picture : pictures) {
            const test::WarpSource source(test::loadJpeg(picture));
            const Tally tally = measure(source, task, pairs, seed);
            tally.print(picture.substr(picture.find_last_of("/\\") + 1));
            all.add(tally);
        }
        all.print("all");
    }
}
