// Index of a recording, and showing its records.
#include "recording_view.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <stdexcept>

#include "library/platform.h"
#include "overlays.h"
#include "scansteps/chain.h"
#include "scansteps/host.h"
#include "scansteps/stream.h"

namespace scansteps::viewer {

namespace {

constexpr std::uint64_t kMinRecord = 16;       // size, type, count
constexpr std::uint64_t kMaxInit = 64 * 1024;  // larger records are taken for frames

int typeOf(const varitype& record)
{
    const varitype* type = record.as<Struct>().find("eventType");
    return type != nullptr && type->kind() == Kind::Int ? type->as<std::int32_t>() : 0;
}

std::ifstream opened(const std::string& path)
{
    std::ifstream file(host::pathFromUtf8(path), std::ios::binary);
    if (!file) throw host::FileError(fmt::format("cannot read {}: {}", path, std::strerror(errno)));
    return file;
}

std::string eventName(int type)
{
    switch (type) {
        case event::kInit:
            return "initialise";
        case event::kProcess:
            return "process";
        case event::kFlush:
            return "end";
        default:
            return fmt::format("event {}", type);
    }
}

}  // namespace

RecordingIndex::RecordingIndex(const std::string& path) : path_(path)
{
    std::ifstream file = opened(path);
    std::error_code error;
    const std::uint64_t length = std::filesystem::file_size(host::pathFromUtf8(path), error);
    std::array<char, 8> field{};
    while (length - end_ >= kMinRecord) {
        file.seekg(std::streamoff(end_));
        file.read(field.data(), field.size());
        std::uint64_t size = 0;
        for (std::size_t i = field.size(); i-- > 0;) size = size << 8U | static_cast<unsigned char>(field[i]);
        if (!file || size < kMinRecord || size > length - end_) break;
        begins_.push_back(end_);
        end_ += size;
        if (size > kMaxInit) continue;
        try {
            const varitype record = read(begins_.size() - 1);
            if (typeOf(record) == event::kInit)
                inits_.push_back({begins_.size() - 1, describeFrames(record.as<Struct>())});
        } catch (const host::FileError&) {  // said when it is shown
        }
    }
    if (begins_.empty()) throw host::FileError(fmt::format("{} is no recording", path));
    if (end_ != length) damage_ = fmt::format("the recording is damaged or cut off at offset {}", end_);
}

std::uint64_t RecordingIndex::bytes(std::size_t index) const
{
    return (index + 1 < begins_.size() ? begins_[index + 1] : end_) - begins_[index];
}

varitype RecordingIndex::read(std::size_t index) const
{
    std::ifstream file = opened(path_);
    std::vector<std::byte> all(bytes(index));
    file.seekg(std::streamoff(begins_[index]));
    file.read(reinterpret_cast<char*>(all.data()), std::streamsize(all.size()));
    if (!file) throw host::FileError(fmt::format("record {} cannot be read", index + 1));
    BIOmem memory(all);
    try {
        return readRecord(memory, {.maxValues = 10'000'000});
    } catch (const char* text) {
        throw host::FileError(fmt::format("record {} is damaged: {}", index + 1, text));
    }
}

FrameDescription RecordingIndex::description(std::size_t index) const
{
    FrameDescription result;
    for (const Init& init : inits_)
        if (init.index <= index) result = init.description;
    return result;
}

RecordingView::RecordingView(Session& session, const std::string& path)
    : session_(session), name_(host::utf8FromPath(host::pathFromUtf8(path).filename())), index_(path)
{
    session_.setSubject(*this);
    // The first record with a frame is a better beginning than the settings of the run.
    show(index_.size() > 1 ? 1 : 0);
}

void RecordingView::show(std::size_t index)
{
    Json status = {
        {"what", "status"},         {"state", "recording"},           {"frame", index + 1},
        {"frames", index_.size()},  {"offset", index_.offset(index)}, {"bytes", index_.bytes(index)},
        {"messages", Json::array()}};
    if (!index_.damage().empty())
        status["messages"].push_back({{"level", "warning"}, {"text", index_.damage()}, {"step", 0}});
    auto shot = std::make_shared<Shot>();
    try {
        const varitype record = index_.read(index);
        status["event"] = eventName(typeOf(record));
        shot = takeShot(record, nullptr, index_.description(index), *pool_);
    } catch (const host::FileError& error) {
        status["messages"].push_back({{"level", "error"}, {"text", error.what()}, {"step", 0}});
    }
    shot->frame = std::int64_t(index) + 1;
    Json step = {{"frame", shot->layout.text()}};
    const Struct& record = shot->record.as<Struct>();
    if (Json counts = countOverlays(record); !counts.empty()) step["counts"] = std::move(counts);
    if (record.has("tria") || record.has("pns")) step["model"] = true;
    status["steps"] = {std::move(step)};
    session_.stage().publish(1, std::move(shot), false);
    session_.setStatus(std::move(status));
}

void RecordingView::stay(const std::function<bool()>& interrupted)
{
    while (!interrupted()) {
        std::int64_t wanted = -1;
        {
            std::unique_lock lock(mutex_);
            ordered_.wait_for(lock, std::chrono::milliseconds(100), [&] { return wanted_ >= 0; });
            wanted = std::exchange(wanted_, -1);
        }
        if (wanted >= 0) show(std::size_t(wanted));
    }
}

Json RecordingView::hello() const
{
    Json step = {{"kind", "recording"},      {"name", name_},
                 {"label", name_},           {"source", true},
                 {"tried", false},           {"summary", "Records of a recording, as they were written."},
                 {"settings", Json::array()}};
    return {
        {"mode", "recording"}, {"title", name_}, {"steps", {std::move(step)}}, {"records", index_.size()}};
}

void RecordingView::set(const SetSetting&)
{
    throw std::runtime_error("a recording has no settings to change");
}

Json RecordingView::act(const Action& action)
{
    if (action.what != Action::What::Seek || action.number < 1 ||
        std::uint64_t(action.number) > index_.size())
        throw std::runtime_error("the recording has no such record");
    {
        const std::lock_guard lock(mutex_);
        wanted_ = action.number - 1;
    }
    ordered_.notify_one();
    return Json::object();
}

void RecordingView::watched(bool) {}

}  // namespace scansteps::viewer
