// Step csegment: stable regions of the frame as a table, and optionally a frame of their labels.
#include <algorithm>
#include <vector>

#include "core/print.h"
#include "grey/grey_from_frame.h"
#include "grey/sample_coding.h"
#include "regions/mser.h"
#include "regions/region_labels.h"
#include "scansteps/frame.h"
#include "scansteps/settings.h"
#include "scansteps/step_factory.h"

namespace scansteps::regions {

class CpuSegment final : public CPUBase
{
  public:
    const char* getName() override { return "CpuSegment"; }
    void init(varitype& params) override;
    void process(varitype& params) override;

  private:
    FrameSize frameSize_;
    bool labels_ = false, bright_ = false;
    grey::SampleCoding coding_ = grey::SampleCoding::Offset16;
    TextureSet in_;
    grey::GreyImage grey_;
    std::vector<Region> regions_;
};

SCANSTEPS_FACTORY(csegment, CpuSegment)

namespace {

constexpr int kMinPixels = 9;

MSER detectorFor(int area)
{
    return {2, MSER::fractionOf(kMinPixels, area), 0.2, 0.7, 0.33, true};
}

// One row per region: centre x and y, area, half axes, angle in degrees, level, variation.
Array tableOf(const std::vector<Region>& regions, bool bright)
{
    Array table(Kind::Float, 8, std::uint32_t(regions.size()));
    float* to = table.elements<float>().data();
    for (const Region& r : regions) {
        const RegionEllipse e = ellipseOf(r);
        const int level = bright ? 255 - r.level_ : r.level_;
        for (const double v :
             {e.x, e.y, double(r.area_), e.major, e.minor, e.angle, double(level), r.variation_})
            *to++ = float(v);
    }
    return table;
}

}  // namespace

void CpuSegment::init(varitype& params)
{
    const Settings settings(*this, params);
    frameSize_ = settings.frameSize();
    labels_ = settings.integer("segment.labels") != 0;
    bright_ = settings.integer("segment.bright") != 0;
    coding_ = grey::sampleCoding(settings);
    in_.create(frameSize_.width, frameSize_.height, 1, formatOrMismatch(*this, params, format::kF1x32));
    forward(*this, params);
}

void CpuSegment::process(varitype& params)
{
    FrameScope frame(*this, params, in_, FrameCheck::Samples16);
    const auto samples = frame.input<std::uint16_t>();
    grey::greyFromFrame(samples, frameSize_.width, frameSize_.height, coding_, grey_);
    if (bright_)
        for (std::uint8_t& v : grey_.samples) v = std::uint8_t(255 - v);
    regions_.clear();
    // in smaller images the maximum area, a fifth of the image, is below kMinPixels
    if (const int area = frameSize_.width * frameSize_.height; area > 5 * kMinPixels)
        detectorFor(area)(grey_.samples, frameSize_.width, frameSize_.height, regions_);
    print::field(std::int64_t(regions_.size()), " segments.size()\n");
    frame.record().insert("regions", tableOf(regions_, bright_));
    if (!labels_) return frame.forwardUnchanged();
    labelStableRegions(grey_.view(), regions_, true, samples);
    frame.forward();
}

}  // namespace scansteps::regions
