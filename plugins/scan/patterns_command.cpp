// The command `scansteps patterns`: writes the pictures to project and patterns.json.
#include <plugins/images/encode.h>
#include <scansteps/error.h>
#include <scansteps/printable.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <string>

#include "checked_json.h"
#include "patterns.h"

namespace scansteps::scan {
namespace {

struct Options
{
    std::string size, out;
    int shifts = 8, period = 16;
    bool rows = false, force = false;
};

void writePatterns(const Options& options)
{
    int width = 0, height = 0;
    char end = 0;
    if (std::sscanf(options.size.c_str(), "%dx%d%c", &width, &height, &end) != 2)
        failf("patterns: --size %s is not of the form 1280x800", printable(options.size).c_str());
    PatternSeries series = makePatternSeries(width, height, options.period, options.shifts, options.rows);
    const std::filesystem::path folder(options.out);
    std::error_code error;
    std::filesystem::create_directories(folder, error);
    const auto json = folder / "patterns.json";
    if (!options.force && std::filesystem::exists(json, error))
        failf("patterns: %s exists: give --force to overwrite the series", printable(json.string()).c_str());
    for (std::size_t i = 0; i < series.patterns.size(); ++i) {
        char name[32];
        std::snprintf(name, sizeof name, "pattern%04zu.png", i);
        const auto picture = patternPicture(series, series.patterns[i]);
        const auto bytes = imageio::encodePng({width, height, 1, 8, picture});
        writeTextFile((folder / name).string(), {reinterpret_cast<const char*>(bytes.data()), bytes.size()},
                      "patterns");
        series.files.emplace_back(name);
    }
    // Last, so that it stands for a complete series.
    writeTextFile(json.string(), patternSeriesJson(series), "patterns");
    std::printf("%zu patterns of %d x %d pixels, period %d, %d shifts%s: %s\n", series.patterns.size(), width,
                height, series.period, series.shifts, series.hasRows ? ", columns and rows" : "",
                printable(json.string()).c_str());
}

int runCommand(int argc, char** argv)
{
    Options options;
    CLI::App app(
        "Writes the patterns that a projector shows for a scan: white, black, each bit of the Gray code "
        "with its inverse, and a sinusoid in several shifts. patterns.json lists them in the order in "
        "which pictures are to be taken.",
        "scansteps patterns");
    app.add_option("--size", options.size, "size of the projector in pixels, such as 1280x800")
        ->required()
        ->type_name("WxH");
    app.add_flag("--rows", options.rows, "code rows as well as columns");
    app.add_option("--phases", options.shifts, "number of phase shifts, at least 3")->capture_default_str();
    app.add_option("--period", options.period, "period of the sinusoid in pixels")->capture_default_str();
    app.add_option("--out", options.out, "folder for the pictures and patterns.json")
        ->required()
        ->type_name("DIR");
    app.add_flag("--force", options.force, "overwrite an existing series");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : 2;
    }
    writePatterns(options);
    return 0;
}

}  // namespace
}  // namespace scansteps::scan

int main(int argc, char** argv)
{
    try {
        return scansteps::scan::runCommand(argc, argv);
    } catch (const char* text) {
        // The series cannot be made (2), or a file cannot be written (5).
        std::fprintf(stderr, "scansteps: error: %s\n", text);
        return std::string_view(text).starts_with("patterns: cannot write") ? 5 : 2;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "scansteps: error: patterns: %s\n", error.what());
        return 5;
    }
}
