// Step imread: frames from image files of many formats, named one by one, by a pattern or by a list.
#include <scansteps/chain.h>
#include <scansteps/error.h>
#include <scansteps/file_patterns.h>
#include <scansteps/frame.h>
#include <scansteps/host_services.h>
#include <scansteps/printable.h>
#include <scansteps/settings.h>
#include <scansteps/step_factory.h>
#include <scansteps/texture.h>

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "decode.h"
#include "read_file.h"

namespace scansteps::imageio {

class Imread final : public CPUBase
{
  public:
    const char* getName() override { return "Imread"; }
    void init(varitype& params) override;
    void process(varitype& params) override;

  private:
    /// The next picture, upright; nothing at the end. Throws DecodeError.
    std::optional<Picture> load();
    /// The same; a file that cannot be read ends the series and is reported.
    std::optional<Picture> loadOrStop();
    void report(const Picture& picture);
    void notifyOnce(bool& isReported, Trouble trouble, const char* what);
    void checkShape(const Picture& picture);

    std::vector<std::string> names_;
    std::size_t nextName_ = 0;
    std::string current_;              // file of the picture loaded last
    std::vector<std::uint8_t> bytes_;  // of that file
    std::unique_ptr<Pictures> pictures_;
    std::optional<Picture> held_;  // the first picture, until its process event
    Array spare_;                  // memory of an earlier frame
    bool orient_ = true;
    int count_ = 0, delivered_ = 0;
    bool reportedDepth_ = false, reportedAlpha_ = false;
    TextureSet out_;
};

SCANSTEPS_FACTORY(imread, Imread)

void Imread::init(varitype& params)
{
    const Settings settings(*this, params);
    count_ = settings.integer("imread.count");
    orient_ = settings.integer("imread.orient") != 0;
    names_ = matchingFiles(settings.text("imread.name"));
    pictures_.reset();
    nextName_ = 0;
    delivered_ = 0;
    reportedDepth_ = reportedAlpha_ = false;
    try {
        held_ = load();
    } catch (const DecodeError& error) {
        notifyHost(Trouble::FileFailed, getName(), current_.c_str(), error.what());
        fail("imread: the first picture cannot be read");
    }
    const std::uint32_t code = held_->isGrey() ? format::kU1x16 : format::kU1x8;
    out_.create(held_->width(), held_->height(), code, shapeOf(held_->pixels));
    varitype record = copyRecord(params);
    record.set("dataX", held_->width());
    record.set("dataY", held_->height());
    record.set("dataFormat", std::string(held_->isGrey() ? "CPU::u_1x16" : "CPU::u_1x8"));
    forward(*this, record);
}

void Imread::process(varitype& params)
{
    StepTimer timer(*this);
    const bool isDone = count_ != 0 && delivered_ >= count_;
    std::optional<Picture> picture = std::exchange(held_, std::nullopt);
    if (!picture && !isDone) picture = loadOrStop();
    if (!picture || isDone) {
        params["eventType"].getv<std::int32_t>() = event::kFlush;
        return;
    }
    report(*picture);
    checkShape(*picture);
    ++delivered_;
    varitype record = copyRecord(params);
    record.set("handle", out_.handle());
    record.set("filename", current_);
    std::swap(out_.pixels(), picture->pixels);
    spare_ = std::move(picture->pixels);
    timer.forward(record);
}

std::optional<Picture> Imread::load()
{
    while (!pictures_ || !pictures_->more()) {
        pictures_.reset();
        if (nextName_ == names_.size()) return std::nullopt;
        current_ = names_[nextName_++];
        bytes_ = readFile(current_);
        pictures_ = openPictures(bytes_);
    }
    Picture picture = pictures_->next(std::move(spare_));
    if (orient_) upright(picture);
    return picture;
}

std::optional<Picture> Imread::loadOrStop()
try {
    return load();
} catch (const DecodeError& error) {
    // Interrupting a wait for a pipe is the host's decision and not reported.
    if (!hostInterrupted()) notifyHost(Trouble::SourceStopped, getName(), current_.c_str(), error.what());
    nextName_ = names_.size();
    pictures_.reset();
    return std::nullopt;
}

void Imread::report(const Picture& picture)
{
    if (!picture.damage.empty())
        notifyHost(Trouble::FrameIncomplete, getName(), current_.c_str(), picture.damage.c_str());
    if (picture.reducedDepth)
        notifyOnce(reportedDepth_, Trouble::DepthReduced, "16-bit colour was rounded to 8 bits");
    if (picture.droppedAlpha) notifyOnce(reportedAlpha_, Trouble::AlphaDropped, "transparency was dropped");
}

void Imread::notifyOnce(bool& isReported, Trouble trouble, const char* what)
{
    if (!std::exchange(isReported, true)) notifyHost(trouble, getName(), current_.c_str(), what);
}

void Imread::checkShape(const Picture& picture)
{
    const bool wantsGrey = out_.format() == format::kU1x16;
    const auto width = static_cast<int>(out_.width()), height = static_cast<int>(out_.height());
    if (picture.width() == width && picture.height() == height && picture.isGrey() == wantsGrey) return;
    const auto kind = [](bool isGrey) { return isGrey ? "grey" : "colour"; };
    failf("imread: %s is %d x %d pixels of %s, but the first picture is %d x %d of %s",
          printable(current_).c_str(), picture.width(), picture.height(), kind(picture.isGrey()), width,
          height, kind(wantsGrey));
}

}  // namespace scansteps::imageio
