// The command `scansteps calibrate`: camera and stage from pictures of a checkerboard.
#include <fmt/format.h>
#include <plugins/images/encode.h>
#include <plugins/scan/calibration.h>
#include <plugins/scan/checked_json.h>
#include <scansteps/error.h>

#include <CLI/CLI.hpp>

#include <cstdio>
#include <exception>
#include <string_view>

#include "board_views.h"
#include "bundle.h"
#include "residual_picture.h"
#include "stage_fit.h"

namespace scansteps::scan {
namespace {

struct Options
{
    std::vector<std::string> boards;
    std::string out, residuals;
    double pitch = 0;
    bool linear = false;
};

/// The views of the pictures that can be used; says why others cannot. `names` are theirs.
std::vector<PlaneView> usedViews(const Options& options, bool located, Eigen::Vector2i& size,
                                 std::vector<std::string>& names)
{
    std::vector<PlaneView> views;
    for (BoardPicture& picture : findBoards(options.boards, size)) {
        if (picture.reason.empty() && located && !picture.board.located)
            picture.reason = "the three dots that locate the corners were not found";
        if (picture.reason.empty()) {
            views.push_back(viewOf(picture.board, options.pitch));
            names.push_back(picture.name);
        } else {
            fmt::print(stderr, "scansteps: warning: calibrate: {}: not used: {}\n", picture.name,
                       picture.reason);
        }
    }
    return views;
}

void report(const CameraSolution& solution, const std::vector<PlaneView>& views,
            const std::vector<std::string>& names)
{
    fmt::print("{:>8} {:>9}\n", "corners", "rms px");
    for (std::size_t i = 0; i < views.size(); ++i)
        fmt::print("{:8} {:9.4f}  {}\n", views[i].pixels.size(), solution.viewRms[i], names[i]);
    constexpr const char* kNames[] = {"fx", "fy", "cx", "cy", "k1", "k2", "p1", "p2", "k3"};
    const CameraParameters parameters = parametersOf(solution.camera);
    fmt::print("\n{:4} {:>12} {:>12}\n", "", "value", "deviation");
    for (int i = 0; i < 9; ++i)
        fmt::print("{:4} {:12.6f} {:12.6f}\n", kNames[i], parameters[i], solution.deviations[i]);
    fmt::print("\nrms {:.4f} px, noise {:.4f} px, {} corners off by more than five times the noise\n",
               solution.rms, solution.noise, solution.outliers);
}

void calibrateCamera(const Options& options)
{
    Eigen::Vector2i size;
    std::vector<std::string> names;
    const std::vector<PlaneView> views = usedViews(options, false, size, names);
    const CameraSolution solution = solveCamera(views, size);
    report(solution, views, names);
    Calibration calibration;
    static_cast<CameraModel&>(calibration.camera) = solution.camera;
    calibration.camera.rms = solution.rms;
    writeCalibration(options.out, calibration);
    if (options.residuals.empty()) return;
    const auto rgb = residualPicture(views, solution);
    const auto bytes = imageio::encodePng({size.x(), size.y(), 3, 8, rgb});
    writeTextFile(options.residuals, {reinterpret_cast<const char*>(bytes.data()), bytes.size()},
                  "calibrate");
}

void calibrateStage(const Options& options)
{
    Calibration calibration = readCalibration(options.out);
    Eigen::Vector2i size;
    std::vector<std::string> names;
    const std::vector<PlaneView> views = usedViews(options, true, size, names);
    if (names.size() < options.boards.size())
        fail(
            "calibrate: the pictures of a stage have to follow each other by equal steps; one cannot be "
            "used");
    if (size != calibration.camera.size)
        fail("calibrate: the pictures have another size than those of the camera");
    const StageSolution solution = solveStage(calibration.camera, views, options.linear);
    calibration.stage = solution.stage;
    if (const auto* table = std::get_if<Turntable>(&solution.stage))
        fmt::print("axis {:.6f} {:.6f} {:.6f} through {:.4f} {:.4f} {:.4f}, {:.5f} degrees a step\n",
                   table->axis.x(), table->axis.y(), table->axis.z(), table->point.x(), table->point.y(),
                   table->point.z(), table->step);
    if (const auto* linear = std::get_if<LinearStage>(&solution.stage))
        fmt::print("direction {:.6f} {:.6f} {:.6f}, {:.5f} mm a step\n", linear->direction.x(),
                   linear->direction.y(), linear->direction.z(), linear->step);
    fmt::print("rms {:.4f} px\n", solution.pixelRms);
    writeCalibration(options.out, calibration);
}

int runCommand(int argc, char** argv)
{
    Options options;
    CLI::App app("Calibrates a scanner from pictures of a checkerboard.", "scansteps calibrate");
    app.require_subcommand(1);
    const auto add = [&](const char* name, const char* description, const char* boards) {
        CLI::App* command = app.add_subcommand(name, description);
        command->add_option("board", options.boards, boards)->required()->type_name("BOARD...");
        command->add_option("--pitch", options.pitch, "side of a square in millimetres")
            ->required()
            ->check(CLI::PositiveNumber);
        command->add_option("--out", options.out, "calibration file")->required()->type_name("FILE");
        return command;
    };
    CLI::App* camera =
        add("camera", "The camera; starts a new calibration file.", "one picture a pose of the board");
    camera->add_option("--residuals", options.residuals, "write the residuals as a picture")
        ->type_name("PNG");
    CLI::App* stage = add("stage", "The stage; added to the calibration file.",
                          "pictures of a board with dots on the stage, one after each step");
    stage->add_flag("--linear", options.linear, "the stage moves along a line instead of turning");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : 2;
    }
    if (camera->parsed()) calibrateCamera(options);
    if (stage->parsed()) calibrateStage(options);
    return 0;
}

}  // namespace
}  // namespace scansteps::scan

int main(int argc, char** argv)
{
    try {
        return scansteps::scan::runCommand(argc, argv);
    } catch (const char* text) {
        // The pictures do not give a calibration (2), or a file cannot be read or written (5).
        std::fprintf(stderr, "scansteps: error: %s\n", text);
        const std::string_view reason(text);
        return reason.find(": cannot read") != reason.npos || reason.find(": cannot write") != reason.npos
                   ? 5
                   : 2;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "scansteps: error: calibrate: %s\n", error.what());
        return 5;
    }
}
