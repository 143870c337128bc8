// Step cjwrite: writes each frame as the next numbered JPEG or PPM file and passes it on.
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "core/print.h"
#include "images/image_file.h"
#include "pixels/grey_window.h"
#include "pixels/yuyv.h"
#include "scansteps/chain.h"
#include "scansteps/frame.h"
#include "scansteps/host_services.h"
#include "scansteps/numbered_name.h"
#include "scansteps/settings.h"
#include "scansteps/step_factory.h"
#include "scansteps/texture.h"

namespace scansteps::images {

class Cjwrite final : public CPUBase
{
  public:
    const char* getName() override { return "Cjwrite"; }
    void init(varitype& params) override;
    void process(varitype& params) override;

  private:
    class SampleRows;
    template <class Rows>
    void write(Rows& rows);

    std::string fileName_;
    int quality_ = 75;
    bool isVideo_ = false;
    std::uint32_t format_ = format::kU1x8;
    FrameSize frameSize_;
    int window_ = 256, level_ = 128;
    TextureSet frame_;
    TextureSet spare_;               // unused, but its handle stays allocated
    std::vector<std::uint8_t> rgb_;  // the requested rows of 16-bit frames as RGB
};

SCANSTEPS_FACTORY(cjwrite, Cjwrite)

void Cjwrite::init(varitype& params)
{
    const Settings settings(*this, params);
    fileName_ = settings.text("cjwrite.name");
    quality_ = settings.integer("cjwrite.quality");
    isVideo_ = settings.has("VideoFormat");
    settings.text("dataFormat");
    frameSize_ = settings.frameSize();
    window_ = settings.integer("viewer.window");
    level_ = settings.integer("viewer.level");
    format_ = settings.has("dataFormat") ? formatOrMismatch(*this, params, format::kF1x32) : format::kU1x8;
    checkFrameSize(frameSize_.width, frameSize_.height);
    const FrameShape shape = chainFrameShape(format_, static_cast<std::uint32_t>(frameSize_.width),
                                             static_cast<std::uint32_t>(frameSize_.height));
    frame_.create(frameSize_.width, frameSize_.height, format_, shape);
    spare_.create(frameSize_.width, frameSize_.height, format_, shape);
    forward(*this, params);
}

namespace {

/// Copies a frame from top to bottom as its rows are requested, and converts them while they are in cache.
class CopiedRows : public RowSource
{
  public:
    CopiedRows(const Array& from, Array& to, std::size_t rowBytes) : from_(from), to_(to), rowBytes_(rowBytes)
    {
        to.reshape(from.kind(), from.dim(0), from.dim(1), from.dim(2));
    }
    const std::uint8_t* rows(int first, int count) override
    {
        const std::byte* begin = to_.data() + rowBytes_ * static_cast<std::size_t>(first);
        copyUpTo(rowBytes_ * static_cast<std::size_t>(first + count + more(first + count)));
        return picture(begin, count + more(first + count));
    }
    /// Copies the rows that were not requested.
    void finish() { copyUpTo(to_.byteSize()); }

  protected:
    /// Number of rows from `next` on, after the requested ones, that are needed to convert those.
    virtual int more(int /*next*/) const { return 0; }
    virtual const std::uint8_t* picture(const std::byte* rows, int)
    {
        return reinterpret_cast<const std::uint8_t*>(rows);
    }

  private:
    void copyUpTo(std::size_t end)
    {
        if (end > copied_ && to_.data() != from_.data())
            std::memcpy(to_.data() + copied_, from_.data() + copied_, end - copied_);
        copied_ = std::max(copied_, end);
    }

    const Array& from_;
    Array& to_;
    std::size_t rowBytes_;
    std::size_t copied_ = 0;
};

}  // namespace

// Frames of 16-bit samples, regardless of the format's name: colour for video frames, otherwise windowed
// grey.
class Cjwrite::SampleRows final : public CopiedRows
{
  public:
    SampleRows(Cjwrite& step, const Array& from, Array& to)
        : CopiedRows(from, to, 2 * static_cast<std::size_t>(step.frameSize_.width)), step_(step)
    {
        step.rgb_.resize(3 * static_cast<std::size_t>(step.frameSize_.width) * (kRowsAtOnce + 1));
    }

  private:
    // With an odd width the last pixel takes its V from the row below.
    int more(int next) const override
    {
        return step_.isVideo_ && step_.frameSize_.width % 2 != 0 && next < step_.frameSize_.height ? 1 : 0;
    }
    const std::uint8_t* picture(const std::byte* rows, int count) override
    {
        const std::size_t width = static_cast<std::size_t>(step_.frameSize_.width),
                          height = static_cast<std::size_t>(count);
        const std::span samples(reinterpret_cast<const std::uint16_t*>(rows), width * height);
        const std::span rgb = std::span(step_.rgb_).first(3 * samples.size());
        if (step_.isVideo_)
            pixels::yuyvToRgb(samples, rgb, width, height);
        else
            pixels::greyWindow(samples, rgb, step_.window_, step_.level_);
        return rgb.data();
    }

    Cjwrite& step_;
};

void Cjwrite::process(varitype& params)
{
    StepTimer timer(*this);
    Array& frame = pixelsOf(params["handle"].as<std::int32_t>());
    if (format_ == format::kU1x8) {
        checkFrame(*this, frame,
                   chainFrameShape(format_, static_cast<std::uint32_t>(frameSize_.width),
                                   static_cast<std::uint32_t>(frameSize_.height)));
        CopiedRows rows(frame, frame_.pixels(), 3 * static_cast<std::size_t>(frameSize_.width));
        write(rows);
    } else {
        samples16(*this, frame, static_cast<std::uint32_t>(frameSize_.width),
                  static_cast<std::uint32_t>(frameSize_.height));
        SampleRows rows(*this, frame, frame_.pixels());
        print::labelled(fileName_, " filename.c_str()\n");
        write(rows);
    }
    incrementName(fileName_);

    varitype record = copyRecord(params);
    record.set("handle", frame_.handle());
    timer.forward(record);
}

template <class Rows>
void Cjwrite::write(Rows& rows)
{
    const std::string reason = writeImage(fileName_, quality_, frameSize_.width, frameSize_.height, rows);
    if (!reason.empty()) notifyHost(Trouble::PictureNotWritten, getName(), fileName_.c_str(), reason.c_str());
    rows.finish();
}

}  // namespace scansteps::images
