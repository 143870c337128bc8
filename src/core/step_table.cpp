// Builds the table of steps from the steps.def of every module. It is part of the core so that hosts can use
// it without the step library.
#include "scansteps/steps.h"

#include <algorithm>
#include <array>
#include <cstddef>

namespace scansteps {

namespace {

constexpr SettingInfo setting(const char* path, Kind kind, const char* doc)
{
    SettingInfo info;
    info.path = path;
    info.kind = kind;
    info.doc = doc;
    return info;
}

constexpr SettingInfo optionalInt(const char* path, int value, const char* doc)
{
    SettingInfo info = setting(path, Kind::Int, doc);
    info.number = value;
    return info;
}

constexpr SettingInfo optionalFloat(const char* path, double value, const char* doc)
{
    SettingInfo info = setting(path, Kind::Float, doc);
    info.number = value;
    return info;
}

constexpr SettingInfo optionalText(const char* path, const char* value, const char* doc)
{
    SettingInfo info = setting(path, Kind::String, doc);
    info.text = value;
    return info;
}

constexpr SettingInfo requiredInt(const char* path, const char* doc)
{
    SettingInfo info = setting(path, Kind::Int, doc);
    info.required = true;
    return info;
}

constexpr SettingInfo requiredText(const char* path, const char* doc)
{
    SettingInfo info = setting(path, Kind::String, doc);
    info.required = true;
    return info;
}

constexpr SettingInfo presence(const char* path, const char* doc)
{
    SettingInfo info = setting(path, Kind::Int, doc);
    info.presence = true;
    return info;
}

// Settings that steps of several modules share.
constexpr SettingInfo dataX = requiredInt("dataX", "width of the frames").range(0, 65535).unit("pixels");
constexpr SettingInfo dataY = requiredInt("dataY", "height of the frames").range(0, 65535).unit("pixels");
constexpr SettingInfo dataFormat = optionalText(
    "dataFormat", "", "format of the frames, such as CPU::u_1x16; when it is missing the step reports 1004");
constexpr SettingInfo videoFormat = presence("VideoFormat", "present when the frames are YUYV16");

// Joins single settings and groups of settings into one array.
template <std::size_t n, std::size_t m>
constexpr std::array<SettingInfo, n + m> join(const std::array<SettingInfo, n>& a,
                                              const std::array<SettingInfo, m>& b)
{
    std::array<SettingInfo, n + m> all;
    for (std::size_t i = 0; i < n; ++i) all[i] = a[i];
    for (std::size_t i = 0; i < m; ++i) all[n + i] = b[i];
    return all;
}

constexpr std::array<SettingInfo, 0> list()
{
    return {};
}
template <class... Rest>
constexpr auto list(const SettingInfo& first, const Rest&... rest);
template <std::size_t n, class... Rest>
constexpr auto list(const std::array<SettingInfo, n>& first, const Rest&... rest)
{
    return join(first, list(rest...));
}
template <class... Rest>
constexpr auto list(const SettingInfo& first, const Rest&... rest)
{
    return join(std::array<SettingInfo, 1>{first}, list(rest...));
}

#define SCANSTEPS_SETTINGS(name, ...) constexpr auto name = list(__VA_ARGS__);
#define SCANSTEPS_STEP(kind, className, role, typeIn, typeOut, flow, summary, ...) \
    constexpr auto k_##kind = list(__VA_ARGS__);
#include "core/steps.def"

enum StepRole
{
    Step,
    Source,
    Player
};
using enum Pixels;

constexpr FrameFlow frames(Pixels in, Pixels out)
{
    FrameFlow flow;
    flow.in = in;
    flow.out = out;
    return flow;
}

constexpr StepInfo kUnsorted[] = {
#define SCANSTEPS_STEP(kind, className, role, typeIn, typeOut, flow, summary, ...) \
    {#kind, #className, typeIn, typeOut, role != Step, role == Player, flow, summary, k_##kind},
#include "core/steps.def"
};

constexpr auto kTable = [] {
    auto table = std::to_array(kUnsorted);
    std::ranges::sort(table, {}, [](const StepInfo& info) { return std::string_view(info.kind); });
    return table;
}();

}  // namespace

std::span<const StepInfo> stepTable()
{
    return kTable;
}

const StepInfo* findStep(std::string_view kind)
{
    for (const StepInfo& info : kTable)
        if (info.kind == kind) return &info;
    return nullptr;
}

const StepInfo* findStepByClass(std::string_view className)
{
    for (const StepInfo& info : kTable)
        if (info.className == className) return &info;
    return nullptr;
}

const char* pixelsName(Pixels pixels)
{
    constexpr const char* kNames[] = {"any",    "none",     "same",      "rgb8",
                                      "yuyv16", "offset16", "samples16", "float"};
    return kNames[static_cast<std::size_t>(pixels)];
}

const SettingInfo* findSetting(const StepInfo& step, std::string_view path)
{
    for (const SettingInfo& info : step.settings)
        if (info.path == path) return &info;
    return nullptr;
}

}  // namespace scansteps
