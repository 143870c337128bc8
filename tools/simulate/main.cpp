// scansteps-simulate: renders the pictures that a scanner would take of a scene, and writes the truth beside
// them.
#include <fmt/format.h>
#include <unistd.h>

#include <CLI/CLI.hpp>

#include <cstdio>
#include <exception>
#include <filesystem>
#include <thread>

#include <plugins/scan/checked_json.h>

#include "output.h"

namespace {

using namespace scansteps;

void printProgress(std::size_t done, std::size_t all)
{
    if (isatty(STDERR_FILENO) != 0)
        fmt::print(stderr, "\rpose {} of {}{}", done, all, done == all ? "\n" : "");
}

int complain(const char* reason)
{
    fmt::print(stderr, "scansteps-simulate: error: {}\n", reason);
    return 2;
}

}  // namespace

int main(int argc, char** argv)
{
    CLI::App app("Simulates the pictures of a scanner, with the truth beside them.", "scansteps-simulate");
    std::string scene;
    simulate::OutputOptions options;
    options.threads = static_cast<int>(std::max(1U, std::thread::hardware_concurrency()));
    bool noTruth = false;
    app.add_option("scene", scene, "the scene, a JSON file")->required();
    app.add_option("--out", options.folder, "folder for the pictures; created")->required();
    app.add_option("-j,--threads", options.threads, "threads; their number does not change any file")
        ->check(CLI::Range(1, 1024));
    app.add_flag("--meshes", options.meshes, "write the meshes of the objects as well");
    app.add_flag("--no-truth", noTruth, "leave out the maps of the truth");
    CLI11_PARSE(app, argc, argv);
    options.truth = !noTruth;
    try {
        const std::string folder = std::filesystem::path(scene).parent_path().string();
        const simulate::Scene parsed = simulate::parseScene(scan::readTextFile(scene, "scene"), folder);
        simulate::writeSeries(parsed, options, printProgress);
    } catch (const char* reason) {
        return complain(reason);
    } catch (const std::exception& error) {
        return complain(error.what());
    }
    return 0;
}
