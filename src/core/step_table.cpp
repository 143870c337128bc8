// The table of kinds, from kinds.def. It is part of the core, so that hosts have it without the step library.
#include "scansteps/steps.h"

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

// What several kinds share.
constexpr SettingInfo dataX = requiredInt("dataX", "width of the frames").range(0, 65535).unit("pixels");
constexpr SettingInfo dataY = requiredInt("dataY", "height of the frames").range(0, 65535).unit("pixels");
constexpr SettingInfo dataFormat = optionalText(
    "dataFormat", "", "format of the frames, such as CPU::u_1x16; when it is missing the step reports 1004");
constexpr SettingInfo videoFormat = presence("VideoFormat", "present when the frames are YUYV16");
constexpr std::array cannySettings{
    optionalInt("OCV.lp0", 0, "passes of the 3 x 3 box low-pass before the detector").hint(0, 1000),
    optionalInt("OCV.order", 3, "aperture of the Sobel derivatives: 3, 5 or 7").hint(3, 7),
    optionalFloat("OCV.trh", 900.0, "high threshold: gradient magnitude at which an edge begins"),
    optionalFloat("OCV.trl", 400.0, "low threshold: gradient magnitude at which an edge goes on"),
};
constexpr SettingInfo cannyClear =
    optionalInt("OCV.clear", 0, "not 0: the frame is cleared before edges are drawn");
constexpr SettingInfo canny5Debug = optionalInt("canny5.debug", 0, "kept, without effect");
constexpr std::array cornerSettings{
    optionalInt("corner.bucket", 0, "0: the strongest features of every 16 x 16 pixels; else of the frame"),
    optionalInt("corner.mode", 0, "kept, without effect"),
    optionalInt("corner.corner", 0, "response: 0 corners (smaller eigenvalue), else blobs (Hessian)"),
    optionalInt("corner.density", 4, "features a bucket; 0 and less count as 4"),
    optionalInt("corner.threshold", 40, "least score, on the scale of grey levels").hint(5, 300),
    optionalInt("corner.lowPass1", 1, "box filter of the frame before the derivatives; 1: none").hint(1, 31),
    optionalInt("corner.lowPass2", 3, "box filter of the products of derivatives").hint(1, 31),
    optionalInt("corner.fastAttr", 1, "descriptor of 256 bits; 0: of 320"),
    optionalInt("corner.video", 1, "0: the range of every frame is stretched to 0 ... 255 first"),
};
constexpr std::array captureSize{
    optionalInt("dataX", 640, "width asked for; the camera's choice wins").range(0, 65535).unit("pixels"),
    optionalInt("dataY", 480, "height asked for; the camera's choice wins").range(0, 65535).unit("pixels"),
};
constexpr std::array recordedSize{
    optionalInt("dataX", 0, "width of the frames, where it is known").range(0, 65535).unit("pixels"),
    optionalInt("dataY", 0, "height of the frames, where it is known").range(0, 65535).unit("pixels"),
};
constexpr std::array loadImages{
    requiredText("load.name", "first file; its digits are the counter").names(SettingRole::Input).countedUp(),
    optionalInt("load.incr", 1, "added to the number in the name after each frame"),
    optionalInt("load.count", 0, "the run ends when more frames than this have been delivered; 0: no limit"),
    presence("load.one", "delivers one image only"),
};

// Settings of one kind as one array, from single settings and from groups of them.
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

#define SCANSTEPS_KIND(kind, className, role, typeIn, typeOut, flow, summary, ...) \
    constexpr auto k_##kind = list(__VA_ARGS__);
#include "core/steps.def"
#undef SCANSTEPS_KIND

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

constexpr KindInfo kTable[] = {
#define SCANSTEPS_KIND(kind, className, role, typeIn, typeOut, flow, summary, ...) \
    {#kind, #className, typeIn, typeOut, role != Step, role == Player, flow, summary, k_##kind},
#include "core/steps.def"
#undef SCANSTEPS_KIND
};

}  // namespace

std::span<const KindInfo> kinds()
{
    return kTable;
}

const KindInfo* findKind(std::string_view kind)
{
    for (const KindInfo& info : kTable)
        if (info.kind == kind) return &info;
    return nullptr;
}

const KindInfo* findKindByClass(std::string_view className)
{
    for (const KindInfo& info : kTable)
        if (info.className == className) return &info;
    return nullptr;
}

const char* pixelsName(Pixels pixels)
{
    constexpr const char* kNames[] = {"any",    "none",     "same",      "rgb8",
                                      "yuyv16", "offset16", "samples16", "float"};
    return kNames[static_cast<std::size_t>(pixels)];
}

const SettingInfo* findSetting(const KindInfo& kind, std::string_view path)
{
    for (const SettingInfo& info : kind.settings)
        if (info.path == path) return &info;
    return nullptr;
}

}  // namespace scansteps
