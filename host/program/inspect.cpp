// scansteps inspect: the records of a recording.
#include <fmt/format.h>

#include <filesystem>
#include <optional>

#include "commands.h"
#include "frame_files.h"
#include "inspect_model.h"
#include "interrupts.h"
#include "library/json_values.h"
#include "library/platform.h"
#include "output.h"
#include "recording_walk.h"
#include "scansteps/chain.h"
#include "scansteps/host.h"
#include "scansteps/stream.h"

namespace scansteps::host {

namespace {

void printModel(const RecordPlace& place, const varitype& record, const InspectOptions& options)
{
    const auto& [number, offset, size] = place;
    const Json model = describeModel(record.as<Struct>());
    if (model.empty()) return;
    if (options.json)
        answer("{{\"offset\": {}, \"size\": {}, \"model\": {}}}", offset, size, dumpLine(model));
    else
        answerLines(fmt::format("record {} at {}, {} bytes\n{}", number, offset, size, modelText(model)));
}

void printRecord(const RecordPlace& place, const varitype& record, const InspectOptions& options)
{
    if (options.model) return printModel(place, record, options);
    const auto& [number, offset, size] = place;
    const Json json = jsonFromRecord(record.as<Struct>(), {options.data});
    if (options.json)
        answer("{{\"offset\": {}, \"size\": {}, \"record\": {}}}", offset, size, dumpLine(json));
    else
        answer("record {} at {}, {} bytes: {}", number, offset, size, dumpLine(json));
}

// Writes the whole records of a damaged recording and an end record.
class Rescue
{
  public:
    explicit Rescue(const InspectOptions& options) : file_(checkedName(options), BIOfs::Mode::Stage)
    {
        if (!file_.isOpen())
            throw FileError{fmt::format("cannot write {}: {}", file_.path(), file_.reason())};
        setUnfinishedFile(file_.temporary().c_str());
    }
    ~Rescue() { setUnfinishedFile(nullptr); }
    void add(const varitype& record)
    {
        named([&] { writeRecord(file_, record); });
    }
    void close(bool hasEnd)
    {
        if (!hasEnd) add(Struct{{"eventType", event::kFlush}});
        named([&] { file_.close(); });
    }

  private:
    static const std::string& checkedName(const InspectOptions& options)
    {
        std::error_code error;
        if (std::filesystem::equivalent(pathFromUtf8(options.recording), pathFromUtf8(options.recover),
                                        error))
            throw UsageError{fmt::format("--recover cannot write {} while it is read", options.recover)};
        return options.recover;
    }
    template <class Work>
    void named(Work work)
    {
        try {
            work();
        } catch (const char* text) {
            throw FileError{fmt::format("{}: {}: {}", file_.path(), text, file_.reason())};
        }
    }

    BIOfs file_;
};

std::string placesText(const Walk& walk)
{
    std::uint64_t skipped = 0;
    for (const Damage& each : walk.damage) skipped += each.skipped;
    return skipped == 0 ? "" : fmt::format("; {} bytes skipped in {} places", skipped, walk.damage.size());
}

}  // namespace

int inspect(const InspectOptions& options)
{
    BIOfs file(options.recording, BIOfs::Mode::Read);
    if (!file.isOpen()) throw FileError{fmt::format("cannot read {}: {}", options.recording, file.reason())};
    std::optional<Rescue> whole;
    if (!options.recover.empty()) whole.emplace(options);
    std::optional<FrameFiles> frames;
    if (!options.frames.empty()) frames.emplace(pathFromUtf8(options.frames));

    const Walk walk =
        walkRecording(file, options.skipDamage, [&](const RecordPlace& place, const varitype& record) {
            printRecord(place, record, options);
            if (frames) frames->add(record.as<Struct>());
            if (whole) whole->add(record);
        });
    if (whole) whole->close(walk.hasEnd);

    const std::string end = walk.hasEnd ? "" : "; no end record";
    std::string summary =
        fmt::format("{} records, {} bytes{}{}", walk.records, walk.bytes, placesText(walk), end);
    if (frames) summary += fmt::format("; {} frames in {}", frames->written(), options.frames);
    if (!options.json && (walk.damage.empty() || frames || whole)) answer("{}", summary);
    std::fflush(stdout);
    if (walk.damage.empty()) {
        if (options.json && !walk.hasEnd) warn("{}: no end record", options.recording);
        return kEnded;
    }
    for (const Damage& each : walk.damage)
        if (each.skipped != 0)
            say("{}: {}; {} bytes skipped at offset {}", options.recording, each.what, each.skipped,
                each.offset);
    const Damage& first = walk.damage.front();
    const std::string damage = fmt::format("{}: {}; {} whole records, damage begins at offset {}{}",
                                           options.recording, first.what, walk.records, first.offset, end);
    if (!whole) throw FileError{damage};
    const std::string rescued = fmt::format("{}; the whole records are in {}", damage, options.recover);
    if (walk.failed) throw FileError{rescued};
    say("{}", rescued);
    return kEnded;
}

}  // namespace scansteps::host
