// What the fuzz target of all steps does with its input, shared with the test that replays the corpus: the
// first bytes name a chain of steps by the keys of their kinds, and the rest makes the records of the events
// that drive it.
#pragma once

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <limits>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "plugin/factories.h"
#include "scansteps/chain.h"
#include "scansteps/handles.h"
#include "scansteps/socket.h"
#include "scansteps/steps.h"
#include "scansteps/texture.h"

extern "C" void set_handles(scansteps::HandleTable* table);

namespace scansteps::fuzzing {

/// Bytes as values; zeros when they have run out.
class Bytes
{
  public:
    Bytes(const std::uint8_t* data, std::size_t size) : at_(data), end_(data + size) {}
    bool empty() const { return at_ == end_; }
    unsigned byte() { return at_ == end_ ? 0 : *at_++; }
    unsigned below(std::size_t count) { return count == 0 ? 0 : byte() % unsigned(count); }
    std::int32_t integer()
    {
        // Mostly small, sometimes anything.
        const unsigned first = byte();
        if (first < 200) return std::int32_t(first) - 8;
        unsigned value = first;
        for (int i = 0; i < 3; ++i) value = value << 8U | byte();
        return std::int32_t(value);
    }
    float real()
    {
        static constexpr std::array<float, 7> odd{0.0F,
                                                  -0.0F,
                                                  1e30F,
                                                  -1e-30F,
                                                  std::numeric_limits<float>::infinity(),
                                                  std::numeric_limits<float>::quiet_NaN(),
                                                  65504.0F};
        const unsigned first = byte();
        if (first < odd.size()) return odd[first];
        return first < 16 ? static_cast<float>(integer()) * 0.37F : static_cast<float>(first);
    }
    std::string text(std::size_t most)
    {
        std::string result;
        for (std::size_t left = below(most + 1); left > 0; --left) result.push_back(char(byte()));
        return result;
    }

  private:
    const std::uint8_t* at_;
    const std::uint8_t* end_;
};

/// Two bytes that name a step in an input, whatever its position in the table (FNV-1a, folded).
constexpr unsigned keyOf(std::string_view kind)
{
    std::uint32_t hash = 2166136261U;
    for (const char c : kind) hash = (hash ^ static_cast<unsigned char>(c)) * 16777619U;
    return (hash >> 16U) ^ (hash & 0xFFFFU);
}

/// The step whose key is the next one from `key` on, the first after the last: any two bytes name a step, and
/// a new step changes only inputs whose key is not exact.
inline const StepInfo& stepAt(unsigned key)
{
    const auto distance = [key](const StepInfo& step) { return (keyOf(step.kind) - key) & 0xFFFFU; };
    return *std::ranges::min_element(stepTable(), {}, distance);
}

/// The receiver of the sender step, on a thread of its own: takes what arrives, connection after connection,
/// and checks that it consists of whole records.
class Receiver
{
  public:
    Receiver() : thread_([this](const std::stop_token& stop) { serve(stop); }) {}
    std::uint16_t port() const { return listener_.port(); }
    /// Waits until every connection made so far has been read to its end.
    void drain()
    {
        const unsigned served = ended_.load();
        USock("127.0.0.1", port()).write(&kMark, 1);  // connections are served in order, so after the others
        ended_.wait(served);
    }

  private:
    static constexpr std::byte kMark{0x55};

    void serve(const std::stop_token& stop)
    {
        while (!stop.stop_requested()) {
            const auto socket = listener_.accept(50);
            if (!socket) continue;
            BIOmem arrived;
            std::vector<std::byte> part(65536);
            for (std::int64_t got = 0; (got = socket->receiveSome(part)) > 0;)
                arrived.write(part.data(), std::size_t(got));
            if (arrived.bytes().size() == 1 && arrived.bytes()[0] == kMark) {
                ended_.fetch_add(1);
                ended_.notify_all();
                continue;
            }
            check(arrived);
        }
    }
    static void check(BIOmem& arrived)
    {
        try {
            while (!arrived.atEnd()) readRecord(arrived);
        } catch (const char* text) {
            std::fprintf(stderr, "the sender has not sent whole records: %s\n", text);
            std::abort();
        }
    }

    Listener listener_{0, "127.0.0.1"};
    std::atomic<unsigned> ended_{0};
    std::jthread thread_;
};

/// Made before the first run, once: where steps may write, the file that players and readers get, and the
/// receiver.
struct Scratch
{
    Scratch()
    {
        folder = std::filesystem::temp_directory_path() / ("scansteps-fuzz-" + std::to_string(std::rand()) +
                                                           "-" + std::to_string(std::uintptr_t(this)));
        std::filesystem::create_directories(folder);
    }
    ~Scratch()
    {
        std::error_code ignored;
        std::filesystem::remove_all(folder, ignored);
    }
    std::string operator/(const char* name) const { return (folder / name).string(); }
    std::filesystem::path folder;
    mutable Receiver receiver;
};

/// Comes before every step: makes init records, replayed ones included, name no file outside the scratch
/// folder, no receiver but ours, no camera of the machine, and no sizes that take long.
class Guard final : public cChain
{
  public:
    Guard(std::string_view kind, const Scratch& scratch) : kind_(kind), scratch_(scratch) {}
    void dispatch(varitype& params) override
    {
        if (params.has("eventType") && params["eventType"].kind() == Kind::Int &&
            eventType(params) == event::kInit)
            tame(params);
        if (next != nullptr) next->dispatch(params);
    }

  private:
    void tame(varitype& params) const
    {
        const std::string image = scratch_ / "in0.bin";
        // Without names of their own these two would write into the current folder.
        for (const auto& [kind, family] : {std::pair{"cjwrite", "cjwrite"}, {"cply", "export"}})
            if (kind_ == kind && !params.has(family)) params.set(family, Struct{{"name", ""}});
        static constexpr std::array families{"save", "dump", "export", "cjwrite", "load"};
        for (const std::string_view family : families) {
            if (!params.has(family) || params[family].kind() != Kind::Struct || !params[family].hasPayload())
                continue;
            // The extension chooses the writer of models and images; the input may choose it.
            std::string extension = ".bin";
            if (params[family].has("name") && params[family]["name"].kind() == Kind::String)
                for (const char* each : {".ply", ".obj", ".stl", ".flt", ".jpg", ".ppm"})
                    if (params[family]["name"].as<std::string>().find(each) != std::string::npos)
                        extension = each;
            varitype nested = params[family];
            nested.set("name", family == "load" ? image : scratch_ / ("out0" + extension).c_str());
        }
        if (kind_ == "sender") redirect(params);
        if (kind_ == "ccap1") unplug(params);
        limit(params, "dataX", 96);
        limit(params, "dataY", 96);
        for (const auto& [family, key, most] : {std::tuple{"combine", "factor", 5},
                                                {"Buff", "Size", 9},
                                                {"OCV", "lp0", 4},
                                                {"export_obj", "image_width", 256},
                                                {"load", "incr", 2}})
            if (params.has(family) && params[family].kind() == Kind::Struct && params[family].hasPayload()) {
                varitype nested = params[family];
                limit(nested, key, most);
            }
    }
    // A missing receiver would cost three seconds of retries, another host a network round trip.
    void redirect(varitype& params) const
    {
        if (!params.has("sender") || params["sender"].kind() != Kind::Struct ||
            !params["sender"].hasPayload())
            return;
        varitype nested = params["sender"];
        if (nested.has("host") && nested["host"].kind() == Kind::String) nested.set("host", "127.0.0.1");
        if (nested.has("port") && nested["port"].kind() == Kind::Int &&
            nested["port"].as<std::int32_t>() > 0 && nested["port"].as<std::int32_t>() < 65536)
            nested.set("port", int(scratch_.receiver.port()));
    }
    // Without a name it would open the machine's first camera; "@max" delivers every frame at once.
    void unplug(varitype& params) const
    {
        if (!params.has("capture")) params.set("capture", Struct{});
        if (params["capture"].kind() != Kind::Struct || !params["capture"].hasPayload()) return;
        varitype nested = params["capture"];
        std::string device = "test:bars@max";
        if (nested.has("dev_name") && nested["dev_name"].kind() == Kind::String) {
            const auto text = nested["dev_name"].as<std::string>();
            if (text.find('m') != std::string::npos) device = "test:moving@max";
            if (text.find('f') != std::string::npos) device = "file:" + (scratch_ / "in0.bin") + "@max";
        }
        nested.set("dev_name", device);
    }
    static void limit(varitype& record, const char* key, int most)
    {
        if (record.has(key) && record[key].kind() == Kind::Int && record[key].as<std::int32_t>() > most)
            record[key].getv<std::int32_t>() %= most + 1;
    }

    std::string_view kind_;
    const Scratch& scratch_;
};

class AnyChain
{
  public:
    AnyChain(const std::uint8_t* data, std::size_t size, const Scratch& scratch)
        : scratch_(scratch), bytes_(data, size)
    {
        fillFreeHandles(table_);
        set_handles(&table_);
        const unsigned count = 1 + bytes_.below(5);
        for (unsigned i = 0; i < count; ++i) {
            const unsigned high = bytes_.byte();
            add(stepAt(high << 8U | bytes_.byte()));
        }
        own_ = createTexture(format::kU1x8, 0, 0);
        if (std::ranges::any_of(kinds_,
                                &StepInfo::source)) {  // roughly the second half is also the file they read
            const std::size_t first = std::min(size, (size + count) / 2);
            std::ofstream(scratch / "in0.bin", std::ios::binary)
                .write(reinterpret_cast<const char*>(data) + first, std::streamsize(size - first));
        }
    }
    AnyChain(const AnyChain&) = delete;
    AnyChain& operator=(const AnyChain&) = delete;
    ~AnyChain()
    {
        steps_.clear();
        own_.reset();
        if (sends_) scratch_.receiver.drain();
        for (const SlotRecord* slot : table_.slots)
            if (slot != nullptr) {
                std::fprintf(stderr, "a step has left its buffers\n");
                std::abort();
            }
        set_handles(nullptr);
    }

    void run()
    {
        if (steps_.empty()) return;
        for (int events = 0; events < 12 && !bytes_.empty(); ++events) {
            varitype record = nextEvent(events == 0);
            send(record);
        }
        varitype flush = Struct{{"eventType", event::kFlush}};
        send(flush);
    }

  private:
    void add(const StepInfo& kind)
    {
        const std::string_view name = kind.kind;
        if (name == "ccap") return;  // opens the machine's own camera, whatever its settings
        if (name == "sender" && std::exchange(sends_, true)) return;  // the receiver serves one at a time
        kinds_.push_back(&kind);
        steps_.push_back(std::make_unique<Guard>(name, scratch_));
        steps_.push_back(plugin::createStep(name));
        for (std::size_t i = steps_.size() - 2; i < steps_.size(); ++i)
            if (i > 0) steps_[i - 1]->setNext(steps_[i].get());
    }

    // Only C strings may be thrown.
    void send(varitype& record)
    {
        try {
            steps_.front()->dispatch(record);
        } catch (const char* text) {
            if (std::string_view(text).size() > 2000) std::abort();
        }
    }

    varitype nextEvent(bool first)
    {
        static constexpr std::array types{1002, 1002, 1002, 1002, 1001, 1003, 1004, 7};
        const int type = first ? event::kInit : types[bytes_.below(types.size())];
        varitype record = Struct{{"eventType", type}};
        if (type == event::kInit) putSettings(record);
        if (type == event::kProcess) putFrame(record);
        for (unsigned more = bytes_.below(4); more > 0; --more) record.set(key(), value(0));
        return record;
    }

    // The settings of the chain's steps, mostly of the expected kind.
    void putSettings(varitype& record)
    {
        static constexpr std::array formats{"CPU::u_1x16", "CPU::u_1x8", "CPU::f_1x32",
                                            "CPU::f_4x32", "u_4x8",      "x"};
        width_ = int(bytes_.below(97));
        height_ = int(bytes_.below(97));
        format_ = formats[bytes_.below(formats.size())];
        record.set("dataX", width_);
        record.set("dataY", height_);
        record.set("dataFormat", format_);
        if (bytes_.below(3) == 0) record.set("VideoFormat", "YUYV16");
        for (const StepInfo* kind : kinds_)
            for (const SettingInfo& setting : kind->settings)
                if (setting.required || bytes_.below(2) == 0) putSetting(record, setting);
    }

    void putSetting(varitype& record, const SettingInfo& setting)
    {
        const std::string_view path = setting.path;
        const auto dot = path.find('.');
        const varitype made = bytes_.below(16) == 15 ? value(0) : valueOf(setting.kind);
        if (dot == std::string_view::npos) {
            if (!record.has(path)) record.set(path, made);
            return;
        }
        const std::string_view family = path.substr(0, dot);
        if (!record.has(family)) record.set(family, Struct{});
        if (record[family].kind() != Kind::Struct) return;
        varitype nested = record[family];
        nested.set(path.substr(dot + 1), made);
    }

    // Mostly a frame that fits the last init record.
    void putFrame(varitype& record)
    {
        const unsigned choice = bytes_.below(16);
        if (choice == 15) {
            record.set("handle", bytes_.integer());
            return;
        }
        FrameShape shape = frameShape(formatCode(format_), unsigned(width_), unsigned(height_));
        if (choice > 12) shape = {Kind(bytes_.below(14)), bytes_.below(100), bytes_.below(100), 1};
        if (choice == 12) shape.rowLength *= 3;
        Array frame(shape.kind, shape.rowLength, shape.rows, shape.planes);
        fill(frame);
        if (choice == 11)
            record.set("data", frame);
        else {
            pixelsOf(int(own_->handle)) = frame;
            record.set("handle", int(own_->handle));
        }
    }

    void fill(Array& array)
    {
        unsigned state = bytes_.byte() * 257 + 1;
        const unsigned run = 1 + bytes_.below(64);
        // In runs: filling byte by byte took a third of the total time.
        for (std::span<std::byte> rest(array.data(), array.byteSize()); !rest.empty();) {
            const std::size_t length = std::min<std::size_t>(run, rest.size());
            state = state * 1664525U + 1013904223U;
            std::memset(rest.data(), int(state >> 24U), length);
            rest = rest.subspan(length);
        }
    }

    std::string key()
    {
        static constexpr std::array keys{"data",   "handle",   "visu",    "filename", "tria",
                                         "pns",    "Vertices", "Indices", "Points",   "Tricolors",
                                         "Colors", "images",   "mfilt",   "OCV",      "export",
                                         "Views",  "UV",       "Pixels",  "vert",     "eventType"};
        const unsigned choice = bytes_.below(keys.size() + 2);
        return choice < keys.size() ? keys[choice] : bytes_.text(5);
    }

    varitype valueOf(Kind kind)
    {
        static constexpr std::array names{"a0.ply", "b.obj",  "c.stl",       "d.flt",
                                          "e0.jpg", "f0.ppm", "CPU::u_1x16", ""};
        switch (kind) {
            case Kind::Int:
                return bytes_.integer();
            case Kind::Float:
                return bytes_.real();
            case Kind::String:
                return bytes_.below(4) == 3 ? bytes_.text(12)
                                            : std::string(names[bytes_.below(names.size())]);
            default:
                return value(0);
        }
    }

    varitype value(int depth)
    {
        switch (bytes_.below(depth < 3 ? 10 : 5)) {
            case 0:
                return bytes_.integer();
            case 1:
                return bytes_.real();
            case 2:
                return bytes_.text(12);
            case 3:
                return double{bytes_.real()};
            case 4:
                return varitype();
            case 5:
            case 6: {
                static constexpr std::array elements{Kind::Float, Kind::Int, Kind::Uchar, Kind::Ushort};
                const unsigned choice = bytes_.below(elements.size() + 1);
                Array array(choice < elements.size() ? elements[choice] : Kind(bytes_.below(14)),
                            bytes_.below(5), bytes_.below(40), 1 + bytes_.below(3));
                fill(array);
                if (array.kind() == Kind::Int && bytes_.below(2) == 0)  // indices close to valid ones
                    for (auto& element : array.elements<std::int32_t>())
                        element = std::int32_t(bytes_.below(20)) - 1;
                return array;
            }
            case 7: {
                StructArray array;
                for (unsigned left = bytes_.below(4); left > 0; --left) array.push_back(structure(depth + 1));
                return array;
            }
            default:
                return structure(depth + 1);
        }
    }

    varitype structure(int depth)
    {
        varitype result = Struct{};
        for (unsigned left = bytes_.below(6); left > 0; --left) result.set(key(), value(depth));
        return result;
    }

    const Scratch& scratch_;
    Bytes bytes_;
    bool sends_ = false;
    HandleTable table_;
    std::vector<const StepInfo*> kinds_;
    std::vector<std::unique_ptr<cChain>> steps_;
    std::unique_ptr<CTexture> own_;
    int width_ = 0, height_ = 0;
    std::string format_;
};

}  // namespace scansteps::fuzzing
