// Walks a recording and finds the next record after damage by size fields.
#include "recording_walk.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <limits>
#include <utility>

#include "scansteps/chain.h"

namespace scansteps::host {

namespace {

constexpr std::uint64_t kEverything = std::numeric_limits<std::uint64_t>::max();

// The file as a stream that keeps the size field of the record that is read.
class Sized : public BIO
{
  public:
    explicit Sized(BIOfs& file) : file_(file) {}
    void write(const void*, std::size_t) override {}
    void read(void* bytes, std::size_t length) override
    {
        file_.read(bytes, length);
        if (std::exchange(atHeader_, false)) std::memcpy(&size, bytes, std::min(length, sizeof size));
    }

    std::uint64_t size = 0;

  private:
    BIOfs& file_;
    bool atHeader_ = true;
};

bool isEnd(const varitype& record)
{
    const varitype* type = record.as<Struct>().find("eventType");
    return type != nullptr && type->kind() == Kind::Int && type->as<std::int32_t>() == event::kFlush;
}

// False when the file ends earlier.
bool skipTo(BIOfs& file, std::uint64_t end)
{
    std::array<std::byte, 65536> ignored;
    try {
        while (file.position() < end)
            file.read(ignored.data(), static_cast<std::size_t>(
                                          std::min<std::uint64_t>(ignored.size(), end - file.position())));
        return true;
    } catch (const char*) {
        return false;
    }
}

}  // namespace

Walk walkRecording(BIOfs& file, bool skipDamage,
                   const std::function<void(const RecordPlace&, const varitype&)>& visit)
{
    Walk walk;
    for (bool more = true; more;) {
        const std::uint64_t begin = file.position();
        Sized sized(file);
        varitype record;
        try {
            if (file.atEnd()) break;
            record = readRecord(sized);
        } catch (const char* text) {
            walk.failed = file.failed();
            walk.damage.push_back({begin, 0, walk.failed ? text + (": " + file.reason()) : text});
            more = skipDamage && !walk.failed;
            if (!more) break;
            const bool isPossible = sized.size >= file.position() - begin && sized.size < kEverything - begin;
            more = skipTo(file, isPossible ? begin + sized.size : kEverything);
            walk.failed = file.failed();
            walk.damage.back().skipped = file.position() - begin;
            continue;
        }
        const std::uint64_t size = file.position() - begin;
        walk.bytes += size;
        walk.hasEnd = isEnd(record);
        visit({++walk.records, begin, size}, record);
    }
    return walk;
}

}  // namespace scansteps::host
