// scansteps inspect: the records of a recording.
#include <fmt/format.h>

#include <filesystem>
#include <optional>
#include <set>
#include <vector>

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

namespace fs = std::filesystem;

namespace {

// One recording of those that are asked for.
struct Inspection
{
    const InspectOptions& options;
    std::string recording;
    fs::path frames;  ///< folder for its frames, or empty
    /// Begins a line of JSON; names the recording where there are several.
    std::string begin(const RecordPlace& place) const
    {
        const std::string name = options.recordings.size() == 1
                                     ? ""
                                     : fmt::format("\"recording\": {}, ", dumpLine(Json(recording)));
        return fmt::format("{{{}\"offset\": {}, \"size\": {}, ", name, place.offset, place.size);
    }
};

void printModel(const RecordPlace& place, const varitype& record, const Inspection& work)
{
    const auto& [number, offset, size] = place;
    const Json model = describeModel(record.as<Struct>());
    if (model.empty()) return;
    if (work.options.json)
        answer("{}\"model\": {}}}", work.begin(place), dumpLine(model));
    else
        answerLines(fmt::format("record {} at {}, {} bytes\n{}", number, offset, size, modelText(model)));
}

void printRecord(const RecordPlace& place, const varitype& record, const Inspection& work)
{
    if (work.options.model) return printModel(place, record, work);
    const auto& [number, offset, size] = place;
    const Json json = jsonFromRecord(record.as<Struct>(), {work.options.data});
    if (work.options.json)
        answer("{}\"record\": {}}}", work.begin(place), dumpLine(json));
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
        if (std::filesystem::equivalent(pathFromUtf8(options.recordings[0]), pathFromUtf8(options.recover),
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

int inspectOne(const Inspection& work)
{
    const InspectOptions& options = work.options;
    BIOfs file(work.recording, BIOfs::Mode::Read);
    if (!file.isOpen()) throw FileError{fmt::format("cannot read {}: {}", work.recording, file.reason())};
    std::optional<Rescue> whole;
    if (!options.recover.empty()) whole.emplace(options);
    std::optional<FrameFiles> frames;
    if (!work.frames.empty()) frames.emplace(work.frames);

    const Walk walk =
        walkRecording(file, options.skipDamage, [&](const RecordPlace& place, const varitype& record) {
            printRecord(place, record, work);
            if (frames) frames->add(record.as<Struct>());
            if (whole) whole->add(record);
        });
    if (whole) whole->close(walk.hasEnd);

    const std::string end = walk.hasEnd ? "" : "; no end record";
    std::string summary =
        fmt::format("{} records, {} bytes{}{}", walk.records, walk.bytes, placesText(walk), end);
    if (frames) summary += fmt::format("; {} frames in {}", frames->written(), utf8FromPath(work.frames));
    if (!options.json && (walk.damage.empty() || frames || whole)) answer("{}", summary);
    std::fflush(stdout);
    if (walk.damage.empty()) {
        if (options.json && !walk.hasEnd) warn("{}: no end record", work.recording);
        return kEnded;
    }
    for (const Damage& each : walk.damage)
        if (each.skipped != 0)
            say("{}: {}; {} bytes skipped at offset {}", work.recording, each.what, each.skipped,
                each.offset);
    const Damage& first = walk.damage.front();
    const std::string damage = fmt::format("{}: {}; {} whole records, damage begins at offset {}{}",
                                           work.recording, first.what, walk.records, first.offset, end);
    if (!whole) throw FileError{damage};
    const std::string rescued = fmt::format("{}; the whole records are in {}", damage, options.recover);
    if (walk.failed) throw FileError{rescued};
    say("{}", rescued);
    return kEnded;
}

// The first failure is the answer, and the others are looked at all the same.
int inspectAll(const InspectOptions& options)
{
    if (!options.recover.empty()) throw UsageError{"--recover takes one recording"};
    std::set<fs::path> folders;
    std::vector<Inspection> works;
    for (const std::string& recording : options.recordings) {
        const fs::path folder = pathFromUtf8(options.frames) / pathFromUtf8(recording).stem();
        if (!options.frames.empty() && !folders.insert(folder).second)
            throw UsageError{
                fmt::format("the frames of two recordings would go into {}", utf8FromPath(folder))};
        works.push_back({options, recording, options.frames.empty() ? fs::path() : folder});
    }
    int code = kEnded;
    for (const Inspection& work : works) {
        if (!options.json) answer("{}:", work.recording);
        try {
            inspectOne(work);
        } catch (const FileError& error) {
            std::fflush(stdout);
            complain("{}", error.what());
            code = kFileFailed;
        }
    }
    return code;
}

}  // namespace

int inspect(const InspectOptions& options)
{
    // Recordings are read without steps; what is named is loaded as anywhere else.
    if (!options.library.empty() || !options.plugins.empty()) loadLibrary(options);
    if (options.recordings.size() > 1) return inspectAll(options);
    return inspectOne({options, options.recordings[0], pathFromUtf8(options.frames)});
}

}  // namespace scansteps::host
