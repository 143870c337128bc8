// scansteps inspect: the records of a recording.
#include <fmt/format.h>

#include <memory>

#include "commands.h"
#include "inspect_model.h"
#include "json_values.h"
#include "runner.h"
#include "scansteps/stream.h"

namespace scansteps::host {

namespace {

struct InspectOptions
{
    std::string recording;
    bool json = false, data = false, model = false;
};

void printModel(std::uint64_t number, std::uint64_t offset, std::uint64_t size, const varitype& record,
                const InspectOptions& options)
{
    const Json model = describeModel(record.as<Struct>());
    if (model.empty()) return;
    if (options.json)
        fmt::print("{{\"offset\": {}, \"size\": {}, \"model\": {}}}\n", offset, size, dumpLine(model));
    else
        fmt::print("record {} at {}, {} bytes\n{}", number, offset, size, modelText(model));
}

void printRecord(std::uint64_t number, std::uint64_t offset, std::uint64_t size, const varitype& record,
                 const InspectOptions& options)
{
    if (options.model) return printModel(number, offset, size, record, options);
    const Json json = jsonFromRecord(record.as<Struct>(), {options.data});
    if (options.json)
        fmt::print("{{\"offset\": {}, \"size\": {}, \"record\": {}}}\n", offset, size, dumpLine(json));
    else
        fmt::print("record {} at {}, {} bytes: {}\n", number, offset, size, dumpLine(json));
}

int inspect(const InspectOptions& options)
{
    BIOfs file(options.recording, BIOfs::Mode::Read);
    if (!file.isOpen()) throw FileError{fmt::format("cannot read {}", options.recording)};
    std::uint64_t count = 0, offset = 0;
    try {
        while (!file.atEnd()) {
            const varitype record = readRecord(file);
            printRecord(++count, offset, file.position() - offset, record, options);
            offset = file.position();
        }
    } catch (const char* text) {
        std::fflush(stdout);
        throw FileError{fmt::format("{}: {}; {} whole records, damage begins at offset {}", options.recording,
                                    text, count, offset)};
    }
    if (!options.json) fmt::print("{} records, {} bytes\n", count, offset);
    return kEnded;
}

}  // namespace

Command addInspect(CLI::App& app)
{
    auto* command = app.add_subcommand("inspect", "Prints the records of a recording");
    auto options = std::make_shared<InspectOptions>();
    command->add_option("RECORDING", options->recording, "A recording")->required();
    command->add_flag("--json", options->json, "One JSON object a line and record");
    command->add_flag("--model", options->model,
                      "What mesh or point cloud each record holds, and nothing else");
    command->add_flag("--data", options->data, "With the elements of arrays");
    return [options] { return inspect(*options); };
}

}  // namespace scansteps::host
