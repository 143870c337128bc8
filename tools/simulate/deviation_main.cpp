// scansteps-deviation: compares a model that was measured in one view, or a closed one, with the truth of the
// simulated series.
#include <fmt/format.h>
#include <plugins/images/encode.h>
#include <plugins/scan/checked_json.h>
#include <plugins/scan/patterns.h>

#include <CLI/CLI.hpp>

#include <cstdio>
#include <exception>
#include <nlohmann/json.hpp>

#include "deviation.h"
#include "pfm_file.h"
#include "ply_file.h"
#include "surface_distance.h"

namespace {

using namespace scansteps;

struct Options
{
    std::string model, series, calibration, picture;
    simulate::Measurement measurement;
    double limit = 0.25;
    bool json = false, closed = false;
};

double share(std::int64_t part, std::int64_t all)
{
    return all > 0 ? 100.0 * static_cast<double>(part) / static_cast<double>(all) : 0;
}

void printTable(const simulate::Deviation& d)
{
    const auto row = [&d](const char* name, auto text) {
        fmt::print("{:<38}{:>18}{:>18}\n", name, text(d.all), text(d.inside));
    };
    const auto length = [&](const char* name, double simulate::Statistics::*value) {
        row(name, [value](const simulate::Statistics& s) { return fmt::format("{:.4f} mm", s.*value); });
    };
    using simulate::Statistics;
    fmt::print("{:<38}{:>18}{:>18}\n", "", "all points", "without contours");
    row("points compared", [](const Statistics& s) { return fmt::format("{}", s.points); });
    length("RMS deviation", &Statistics::rms);
    length("RMS that noise alone allows", &Statistics::expectedRms);
    row("ratio of the two", [](const Statistics& s) {
        return s.expectedRms > 0 ? fmt::format("{:.3f}", s.rms / s.expectedRms) : std::string("-");
    });
    length("mean deviation", &Statistics::mean);
    length("half of the points are within", &Statistics::median);
    length("95 % of the points are within", &Statistics::percentile95);
    length("largest deviation", &Statistics::largest);
    row("points off by more than 0.5 mm",
        [](const Statistics& s) { return fmt::format("{:.4f} %", share(s.far, s.points)); });
    fmt::print(
        "measured: {:.2f} % of {} pixels that both devices see; {} points where the truth has no lit "
        "surface\n",
        share(d.measured, d.measurable), d.measurable, d.elsewhere);
}

nlohmann::ordered_json jsonOf(const simulate::Statistics& s)
{
    return {{"points", s.points},
            {"far", s.far},
            {"mean", s.mean},
            {"rms", s.rms},
            {"expectedRms", s.expectedRms},
            {"median", s.median},
            {"percentile95", s.percentile95},
            {"largest", s.largest}};
}

void printJson(const simulate::Deviation& d)
{
    const nlohmann::ordered_json json = {{"all", jsonOf(d.all)},
                                         {"inside", jsonOf(d.inside)},
                                         {"elsewhere", d.elsewhere},
                                         {"measurable", d.measurable},
                                         {"measured", d.measured}};
    fmt::print("{}\n", json.dump(1));
}

void compare(Options options)
{
    const std::string truth = options.series + "/truth/";
    const simulate::ViewTruth view{simulate::readPfm(truth + "depth.pfm"),
                                   simulate::readPfm(truth + "columns.pfm"),
                                   simulate::readPfm(truth + "amplitude.pfm")};
    if (options.calibration.empty()) options.calibration = options.series + "/calibration.json";
    const scan::PatternSeries patterns = scan::readPatternSeries(options.series + "/patterns.json");
    options.measurement.period = patterns.period;
    options.measurement.shifts = patterns.shifts;
    const simulate::Deviation deviation =
        simulate::deviationOf(simulate::readPly(options.model), view,
                              scan::readCalibration(options.calibration), options.measurement);
    options.json ? printJson(deviation) : printTable(deviation);
    if (options.picture.empty()) return;
    const std::vector<std::uint8_t> rgb = simulate::falseColours(deviation, view, options.limit);
    const auto file = imageio::encodePng({view.depth.width, view.depth.height, 3, 8, rgb});
    scan::writeTextFile(options.picture, {reinterpret_cast<const char*>(file.data()), file.size()},
                        "picture");
}

// The true surface of the first object, in the camera coordinates of the first view.
simulate::Mesh truthOf(const std::string& series)
{
    simulate::Mesh mesh = simulate::readPly(series + "/truth/object0.ply");
    const auto poses = nlohmann::json::parse(scan::readTextFile(series + "/truth/poses.json", "truth"));
    const auto& pose = poses.at("poses").at(0).at("objects").at(0);
    Eigen::Matrix3d rotation;
    Eigen::Vector3d translation;
    for (int i = 0; i < 9; ++i) rotation(i / 3, i % 3) = pose.at("rotation").at(std::size_t(i)).get<double>();
    for (int i = 0; i < 3; ++i) translation[i] = pose.at("translation").at(std::size_t(i)).get<double>();
    for (Eigen::Vector3d& vertex : mesh.vertices) vertex = rotation * vertex + translation;
    return mesh;
}

void printClosed(const simulate::ClosedDeviation& d)
{
    using simulate::Statistics;
    const auto row = [&d](const char* name, auto text) {
        fmt::print("{:<38}{:>18}{:>18}\n", name, text(d.measured), text(d.filled));
    };
    const auto length = [&](const char* name, double Statistics::*value) {
        row(name, [value](const Statistics& s) { return fmt::format("{:.4f} mm", s.*value); });
    };
    fmt::print("{:<38}{:>18}{:>18}\n", "", "measured", "filled holes");
    fmt::print("{:<38}{:>18}{:>18}\n", "triangles", d.measuredTriangles, d.filledTriangles);
    row("vertices compared", [](const Statistics& s) { return fmt::format("{}", s.points); });
    length("RMS distance to the true surface", &Statistics::rms);
    length("mean distance, positive outside", &Statistics::mean);
    length("half of the vertices are within", &Statistics::median);
    length("95 % of the vertices are within", &Statistics::percentile95);
    length("largest distance", &Statistics::largest);
    row("vertices off by more than 0.5 mm",
        [](const Statistics& s) { return fmt::format("{:.4f} %", share(s.far, s.points)); });
    fmt::print("{} sides with one triangle, {} with more than two; Euler number {}\n", d.openSides,
               d.sharedSides, d.euler);
}

void compareClosed(const Options& options)
{
    const simulate::ClosedDeviation deviation =
        simulate::deviationOf(simulate::readModel(options.model), truthOf(options.series));
    if (!options.json) return printClosed(deviation);
    const nlohmann::ordered_json json = {{"measured", jsonOf(deviation.measured)},
                                         {"filled", jsonOf(deviation.filled)},
                                         {"measuredTriangles", deviation.measuredTriangles},
                                         {"filledTriangles", deviation.filledTriangles},
                                         {"openSides", deviation.openSides},
                                         {"sharedSides", deviation.sharedSides},
                                         {"euler", deviation.euler}};
    fmt::print("{}\n", json.dump(1));
}

int complain(const char* reason)
{
    fmt::print(stderr, "scansteps-deviation: error: {}\n", reason);
    return 2;
}

}  // namespace

int main(int argc, char** argv)
{
    CLI::App app("Compares a model with the truth of a simulated series.", "scansteps-deviation");
    Options options;
    app.add_option("series", options.series, "folder of the simulated series, with patterns.json and truth/")
        ->required();
    app.add_option("model", options.model,
                   "the model, a PLY file in camera coordinates; with --mesh also a recording")
        ->required();
    app.add_option("--calibration", options.calibration,
                   "the true calibration, instead of that in the folder");
    app.add_option("--noise", options.measurement.noise, "noise of the camera in grey levels (2)")
        ->check(CLI::Range(0.0, 100.0));
    app.add_option("--picture", options.picture, "PNG file for the deviations in false colours");
    app.add_option("--limit", options.limit, "deviation in mm that has the full colour (0.25)")
        ->check(CLI::Range(1e-6, 1e6));
    app.add_flag("--mesh", options.closed,
                 "compare a model of all sides, in the coordinates of the first view, with truth/object0.ply "
                 "(scansteps-simulate --meshes); of a recording, filled holes are reported apart");
    app.add_flag("--json", options.json, "print JSON instead of a table");
    CLI11_PARSE(app, argc, argv);
    try {
        options.closed ? compareClosed(options) : compare(options);
    } catch (const char* reason) {
        return complain(reason);
    } catch (const std::exception& error) {
        return complain(error.what());
    }
    return 0;
}
