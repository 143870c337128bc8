// Step c3f: one colour channel, luma or a mixture of channels as offset 16-bit frames, from 8-bit RGB or,
// with "VideoFormat", from YUYV16. Later steps receive offset frames, so "VideoFormat" is removed.
#include <vector>

#include "pixels/colour_channel.h"
#include "pixels/conversion_step.h"
#include "pixels/yuyv.h"
#include "scansteps/step_factory.h"

namespace scansteps::pixels {

class Cpu3f final : public ConversionStep
{
  public:
    const char* getName() override { return "Cpu3f"; }
    void init(varitype& params) override;
    void process(varitype& params) override;

  private:
    bool isVideo_ = false;
    Channel channel_ = Channel::luma;
    std::array<float, 3> weights_{};
    std::vector<std::uint8_t> rgb_;
};

SCANSTEPS_FACTORY(c3f, Cpu3f)

void Cpu3f::init(varitype& params)
{
    const Settings settings(*this, params);
    frameSize_ = settings.frameSize();
    channel_ = Channel(settings.integer("color.channel"));
    weights_ = {settings.real("color.red"), settings.real("color.green"), settings.real("color.blue")};
    isVideo_ = settings.has("VideoFormat");
    const std::uint32_t code = isVideo_ ? format::kU1x16 : format::kU1x8;
    formatOrMismatch(*this, params, code, code);
    if (isVideo_)
        in_.create(frameSize_.width, frameSize_.height, 1, format::kU1x16);
    else
        in_.create(rgbRow(), frameSize_.height, 1, format::kU1x8);
    out_.create(frameSize_.width, frameSize_.height, 1, format::kU1x16);
    params.set("dataFormat", "CPU::u_1x16");
    params.remove("VideoFormat");
    forward(*this, params);
}

void Cpu3f::process(varitype& params)
{
    FrameScope frame(*this, params, in_, out_, isVideo_ ? FrameCheck::Samples16 : FrameCheck::Exact);
    const auto output = frame.output<std::uint16_t>();
    if (isVideo_ && channel_ == Channel::luma) {
        lumaOfYuyv(frame.input<std::uint16_t>(), output);
    } else if (isVideo_) {
        rgb_.resize(3 * output.size());
        yuyvToRgb(frame.input<std::uint16_t>(), rgb_, in_.width(), in_.height());
        channelOfRgb(rgb_, output, channel_, weights_);
    } else {
        channelOfRgb(frame.input<std::uint8_t>(), output, channel_, weights_);
    }
    frame.forward();
}

}  // namespace scansteps::pixels
