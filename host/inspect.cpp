// scansteps inspect: the records of a recording.
#include <fmt/format.h>

#include <optional>

#include "commands.h"
#include "frame_files.h"
#include "inspect_model.h"
#include "json_values.h"
#include "outcome.h"
#include "scansteps/stream.h"
#include "system.h"

namespace scansteps::host {

namespace {

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

// Where the whole records end, and why the next one could not be read.
struct Walk
{
    std::uint64_t records = 0, offset = 0;
    std::string damage;
};

template <class Visit>
Walk walk(BIOfs& file, Visit visit)
{
    Walk done;
    for (;;) {
        varitype record;
        try {
            if (file.atEnd()) return done;
            record = readRecord(file);
        } catch (const char* text) {
            done.damage = text;
            return done;
        }
        visit(++done.records, done.offset, file.position() - done.offset, record);
        done.offset = file.position();
    }
}

// The whole records of a damaged recording.
class Rescue
{
  public:
    explicit Rescue(const std::string& path) : path_(path), file_(path, BIOfs::Mode::Write)
    {
        if (!file_.isOpen()) throw FileError{fmt::format("cannot write {}", path)};
    }
    void add(const varitype& record)
    {
        named([&] { writeRecord(file_, record); });
    }
    void close()
    {
        named([&] { file_.close(); });
    }

  private:
    template <class Work>
    void named(Work work)
    {
        try {
            work();
        } catch (const char* text) {
            throw FileError{fmt::format("{}: {}", path_, text)};
        }
    }

    std::string path_;
    BIOfs file_;
};

}  // namespace

int inspect(const InspectOptions& options)
{
    BIOfs file(options.recording, BIOfs::Mode::Read);
    if (!file.isOpen()) throw FileError{fmt::format("cannot read {}", options.recording)};
    std::optional<FrameFiles> frames;
    if (!options.frames.empty()) frames.emplace(pathFromUtf8(options.frames));
    std::optional<Rescue> whole;
    if (!options.recover.empty()) whole.emplace(options.recover);

    const Walk done = walk(file, [&](auto number, auto offset, auto size, const varitype& record) {
        printRecord(number, offset, size, record, options);
        if (frames) frames->add(record.as<Struct>());
        if (whole) whole->add(record);
    });
    if (whole) whole->close();

    std::string summary = fmt::format("{} records, {} bytes", done.records, done.offset);
    if (frames) summary += fmt::format("; {} frames in {}", frames->written(), options.frames);
    if (!options.json && (done.damage.empty() || frames || whole)) fmt::print("{}\n", summary);
    std::fflush(stdout);
    if (done.damage.empty()) return kEnded;
    const std::string damage = fmt::format("{}: {}; {} whole records, damage begins at offset {}",
                                           options.recording, done.damage, done.records, done.offset);
    if (!whole) throw FileError{damage};
    fmt::print(stderr, "scansteps: {}; the whole records are in {}\n", damage, options.recover);
    return kEnded;
}

}  // namespace scansteps::host
