// The words of a steps.def file: settings, groups of settings and the flow of frames. steps.def files are
// included by step_exports.h and plugin_exports.h, and by the table of the step library.
#pragma once

#include <array>
#include <cstddef>

#include "scansteps/steps.h"

namespace scansteps::definitions {

using enum Pixels;

enum StepRole
{
    Step,
    Source,
    Player,  ///< a source whose recording contains its own initialise record
};

constexpr SettingInfo setting(const char* path, Kind kind, const char* doc)
{
    SettingInfo info;
    info.path = path;
    info.kind = kind;
    info.doc = doc;
    return info;
}

constexpr SettingInfo optionalNumber(const char* path, Kind kind, double value, const char* doc)
{
    SettingInfo info = setting(path, kind, doc);
    info.number = value;
    return info;
}

constexpr SettingInfo optionalInt(const char* path, int value, const char* doc)
{
    return optionalNumber(path, Kind::Int, value, doc);
}

constexpr SettingInfo optionalFloat(const char* path, double value, const char* doc)
{
    return optionalNumber(path, Kind::Float, value, doc);
}

constexpr SettingInfo optionalText(const char* path, const char* value, const char* doc)
{
    SettingInfo info = setting(path, Kind::String, doc);
    info.text = value;
    return info;
}

constexpr SettingInfo required(const char* path, Kind kind, const char* doc)
{
    SettingInfo info = setting(path, kind, doc);
    info.required = true;
    return info;
}

constexpr SettingInfo requiredInt(const char* path, const char* doc)
{
    return required(path, Kind::Int, doc);
}

constexpr SettingInfo requiredText(const char* path, const char* doc)
{
    return required(path, Kind::String, doc);
}

constexpr SettingInfo presence(const char* path, const char* doc)
{
    SettingInfo info = setting(path, Kind::Int, doc);
    info.presence = true;
    return info;
}

// Settings that steps of several modules share.
inline constexpr SettingInfo dataX =
    requiredInt("dataX", "width of the frames").range(0, 65535).unit("pixels");
inline constexpr SettingInfo dataY =
    requiredInt("dataY", "height of the frames").range(0, 65535).unit("pixels");
inline constexpr SettingInfo dataFormat = optionalText(
    "dataFormat", "", "format of the frames, such as CPU::u_1x16; when it is missing the step reports 1004");
inline constexpr SettingInfo loadAhead =
    optionalInt("load.ahead", -1,
                "frames decoded ahead on other threads; -1: one less than there are processors, at most 8")
        .range(-1, 256);
inline constexpr SettingInfo writeBehind =
    optionalInt("write.behind", 4, "frames that wait for the thread that writes; 0: the chain waits for each")
        .range(0, 256);
inline constexpr SettingInfo videoFormat = presence("VideoFormat", "present when the frames are YUYV16");

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

constexpr FrameFlow frames(Pixels in, Pixels out)
{
    FrameFlow flow;
    flow.in = in;
    flow.out = out;
    return flow;
}

}  // namespace scansteps::definitions

// Made from the entries of a steps.def file, inside a namespace that uses scansteps::definitions.
#define SCANSTEPS_SETTINGS_ARRAY(name, ...) constexpr auto name = list(__VA_ARGS__);
#define SCANSTEPS_STEP_ARRAY(kind, className, role, typeIn, typeOut, flow, summary, ...) \
    constexpr auto k_##kind = list(__VA_ARGS__);
#define SCANSTEPS_STEP_ENTRY(kind, className, role, typeIn, typeOut, flow, summary, ...) \
    {#kind, #className, typeIn, typeOut, role != Step, role == Player, flow, summary, k_##kind},
