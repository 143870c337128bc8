// Steps cedge and cdeva: gradient magnitude and local standard deviation, in the frame's place.
#include "grey/sample_coding.h"
#include "edges/gradient_frame.h"
#include "grey/local_deviation.h"
#include "core/step_factory.h"
#include "scansteps/frame.h"
#include "scansteps/settings.h"

namespace scansteps {
namespace {

// A step that turns 16-bit frames into offset 16-bit frames; the next steps no longer see YUYV16.
class FilterStep : public CPUBase
{
  public:
    void init(varitype& params) override
    {
        const Settings settings(*this, params);
        width_ = settings.integer("dataX");
        height_ = settings.integer("dataY");
        meaning_ = frameMeaning(settings);
        read(settings);
        in_.create(width_, height_, 1, formatOrMismatch(*this, params, format::kF1x32));
        params.remove("VideoFormat");
        forward(*this, params);
    }

    void process(varitype& params) override
    {
        FrameScope frame(*this, params, in_, FrameCheck::Samples16);
        filter(frame.input<std::uint16_t>());
        frame.forward();
    }

  protected:
    virtual void read(const Settings& settings) = 0;
    virtual void filter(std::span<std::uint16_t> frame) = 0;

    WorkMemory memory_;
    int width_ = 0, height_ = 0;
    Frame16 meaning_ = Frame16::Offset;

  private:
    TextureSet in_;
};

}  // namespace

class CpuEdge final : public FilterStep
{
  public:
    const char* getName() override { return "CpuEdge"; }

  private:
    void read(const Settings& settings) override
    {
        lowPasses_ = settings.integer("edge.lp0");
        aperture_ = settings.integer("edge.order");
    }
    void filter(std::span<std::uint16_t> frame) override
    {
        gradientFrame16(frame, width_, height_, meaning_, lowPasses_, aperture_, dx_, dy_, &memory_);
    }

    int lowPasses_ = 0, aperture_ = 3;
    FloatPlane dx_, dy_;
};

class CpuDev1 final : public FilterStep
{
  public:
    const char* getName() override { return "CpuDev1"; }

  private:
    void read(const Settings& settings) override
    {
        size_ = settings.integer("deva.size");
        gain_ = settings.real("deva.gain");
    }
    void filter(std::span<std::uint16_t> frame) override
    {
        localDeviation(frame, width_, height_, meaning_, size_, gain_, &memory_);
    }

    int size_ = 7;
    float gain_ = 1;
};

SCANSTEPS_STEP(CpuEdge)
SCANSTEPS_STEP(CpuDev1)

}  // namespace scansteps
