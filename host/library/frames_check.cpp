// Checks whether each step takes the frames that the steps before it produce.
#include <fmt/format.h>

#include "checks.h"

namespace scansteps::host {

namespace {

bool fits(Pixels given, Pixels taken)
{
    const auto is16 = [](Pixels pixels) { return pixels == Pixels::Yuyv16 || pixels == Pixels::Offset16; };
    return given == taken || given == Pixels::Any || taken == Pixels::Any || taken == Pixels::None ||
           (given == Pixels::Samples16 && is16(taken)) || (taken == Pixels::Samples16 && is16(given));
}

// Steps that convert between the two; empty when there are none.
const char* conversion(Pixels from, Pixels to)
{
    struct Way
    {
        Pixels from, to;
        const char* steps;
    };
    using enum Pixels;
    constexpr Way kWays[] = {
        {Rgb8, Samples16, "cyuv"},     {Rgb8, Yuyv16, "cyuv"},     {Rgb8, Offset16, "c3t1"},
        {Rgb8, Float, "c3t1 ! cu2f"},  {Yuyv16, Rgb8, "crgb"},     {Yuyv16, Offset16, "c3f"},
        {Yuyv16, Float, "c3f ! cu2f"}, {Samples16, Rgb8, "crgb"},  {Samples16, Float, "cu2f"},
        {Offset16, Float, "cu2f"},     {Float, Samples16, "cf2u"}, {Float, Offset16, "cf2u"}};
    for (const Way& way : kWays)
        if (way.from == from && way.to == to) return way.steps;
    return "";
}

// Whether a step reduces YUYV16 frames by a factor that splits pairs of pixels which share their chroma.
bool splitsPairs(const Pipeline& pipeline, std::size_t i, Pixels given)
{
    if (std::string_view(pipeline.steps[i].info->kind) != "cdown1") return false;
    const auto factor = effectiveValue(pipeline, i, "down1.factor");
    if (!factor || factor->kind() != Kind::Int || factor->as<std::int32_t>() < 2) return false;
    const bool isVideo = given == Pixels::Yuyv16 || ((given == Pixels::Any || given == Pixels::Samples16) &&
                                                     effectiveValue(pipeline, i, "VideoFormat"));
    return isVideo && factor->as<std::int32_t>() % 2 != 0;
}

}  // namespace

void checkFrames(const Pipeline& pipeline, std::vector<Finding>& findings)
{
    const auto warn = [&](std::size_t giver, const std::string& what, const char* steps) {
        findings.push_back({kEnded,
                            stepLabel(pipeline, giver) + what +
                                (*steps == '\0' ? "" : fmt::format("; put {} between them", steps)),
                            giver});
    };
    Pixels now = Pixels::Any;  // the host's own frame is of any format
    std::size_t giver = 0;
    bool inRecord = false;
    for (std::size_t i = 0; i < pipeline.steps.size(); ++i) {
        const StepInfo& from = *pipeline.steps[giver].info;
        const FrameFlow& flow = pipeline.steps[i].info->frames;
        if (!fits(now, flow.in)) {
            const bool isPacked = now == Pixels::None && (from.player || from.frames.refusesData);
            warn(giver,
                 fmt::format(" gives {}, but {} takes {}",
                             now == Pixels::None ? "no frame under \"handle\"" : pixelsName(now),
                             stepLabel(pipeline, i), pixelsName(flow.in)),
                 isPacked ? "d2h" : conversion(now, flow.in));
        }
        if (inRecord && flow.refusesData)
            warn(giver,
                 fmt::format(" also puts the frame into the record, as \"data\", which {} refuses",
                             stepLabel(pipeline, i)),
                 "cstrip");
        if (splitsPairs(pipeline, i, now))
            findings.push_back({kEnded,
                                stepLabel(pipeline, i) +
                                    " mixes the colours of neighbouring blocks: down1.factor is odd, and two "
                                    "pixels of a YUYV16 frame share their chroma; use an even factor",
                                i});
        if (flow.out == Pixels::Same) continue;
        now = flow.out;
        giver = i;
        inRecord = flow.addsData;
    }
}

}  // namespace scansteps::host
