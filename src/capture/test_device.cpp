// Simulated cameras for demonstrations and tests: "test:PATTERN" draws a pattern, "file:NAME0000.jpg" repeats
// numbered pictures. Both may end in "@FPS", frames per second (default 60), or in "@max": as fast as frames
// are taken, without dropping any.
#include <algorithm>
#include <charconv>
#include <stdexcept>
#include <thread>

#include "capture/capture.h"
#include "capture/test_pattern.h"
#include "images/image_file.h"
#include "images/input_file.h"
#include "jpeg/decoder.h"
#include "pixels/yuyv.h"
#include "scansteps/error.h"
#include "scansteps/numbered_name.h"

namespace scansteps::capture {

namespace {

/// Source of a test device's frames. Opened on the chain's thread, used on the device's.
class FrameSource
{
  public:
    virtual ~FrameSource() = default;
    virtual CaptureFormat format() const = 0;
    /// Frame `number`, from 0, valid until the next call. Throws std::runtime_error.
    virtual std::span<const std::byte> frame(std::uint64_t number) = 0;
};

class PatternSource final : public FrameSource
{
  public:
    PatternSource(TestPattern pattern, const CaptureRequest& request)
        : pattern_(pattern, std::max(request.width / 2 * 2, 2), std::max(request.height, 1))
    {
    }
    CaptureFormat format() const override { return {pattern_.width(), pattern_.height(), false}; }
    std::span<const std::byte> frame(std::uint64_t number) override
    {
        return std::as_bytes(pattern_.frame(number));
    }

  private:
    PatternImage pattern_;
};

// Enough for any picture of a size that the decoder supports.
constexpr std::uint64_t kMaxFileBytes = std::uint64_t{1} << 28;

class FileSource final : public FrameSource
{
  public:
    FileSource(const std::string& name, bool jpeg) : first_(name), next_(name)
    {
        format_.jpeg = jpeg;
        if (const std::string problem = load(name); !problem.empty()) failf("%s", problem.c_str());
    }
    CaptureFormat format() const override { return format_; }

    std::span<const std::byte> frame(std::uint64_t number) override
    {
        if (number != 0) {
            const bool wrapped = advanceName(next_, 1);
            if (wrapped || images::InputFile(next_).missing()) next_ = first_;
            if (const std::string problem = load(next_); !problem.empty()) throw std::runtime_error(problem);
        }
        return format_.jpeg ? std::as_bytes(std::span(bytes_)) : std::as_bytes(std::span(samples_));
    }

  private:
    // Returns the problem with the file, empty if there is none.
    std::string load(const std::string& name)
    {
        CaptureFormat format;
        std::string reason = format_.jpeg ? loadCompressed(name, format) : loadPixels(name, format);
        if (reason.empty() && !accept(format)) reason = "it has another size than the first";
        return reason.empty() ? reason : "capture: " + name + " cannot be shown: " + reason;
    }

    // The first picture sets the size; pictures of other sizes are rejected.
    bool accept(const CaptureFormat& format)
    {
        if (format_.width == 0) format_ = format;
        return format_.width == format.width && format_.height == format.height;
    }

    std::string loadCompressed(const std::string& name, CaptureFormat& format)
    {
        images::InputFile file(name);
        bytes_ = file.readRest(kMaxFileBytes);
        if (file.error() != 0) return file.reason();
        jpeg::BaselineJpegDecoder decoder;
        if (decoder.parseHeader(bytes_) != 0) {
            const std::string reason = decoder.getErrorString();
            return reason.substr(0, reason.find('\n'));
        }
        format.jpeg = true;
        decoder.getSize(format.width, format.height);
        return "";
    }

    std::string loadPixels(const std::string& name, CaptureFormat& format)
    {
        images::ImageTrouble trouble;
        const auto image = images::loadImage(name, {}, &trouble);
        if (!image) return trouble.reason;
        format = {image->width, image->height, false};
        samples_.resize(format.pixels());
        pixels::rgbToYuyv(image->bytes(), samples_, static_cast<std::size_t>(image->width),
                          static_cast<std::size_t>(image->height));
        return "";
    }

    std::string first_, next_;
    CaptureFormat format_;
    std::vector<std::uint16_t> samples_;
    std::vector<std::uint8_t> bytes_;
};

class TestDevice final : public CaptureDevice
{
  public:
    /// `rate` is in frames per second; 0: as fast as frames are taken.
    TestDevice(std::unique_ptr<FrameSource> source, double rate) : source_(std::move(source)), rate_(rate) {}
    CaptureFormat format() const override { return source_->format(); }
    void start(FrameQueue& queue) override
    {
        thread_ = std::jthread([this, &queue] { run(queue); });
    }

  private:
    void run(FrameQueue& queue)
    {
        try {
            const auto begin = FrameQueue::Clock::now();
            for (std::uint64_t number = 0;; ++number) {
                const auto frame = source_->frame(number);
                if (!(rate_ > 0 ? queue.sleepUntil(begin + after(number)) : queue.waitUntilTaken())) return;
                queue.push(frame);
            }
        } catch (const std::exception& error) {
            queue.fail("%s", error.what());
        } catch (const char* text) {
            queue.fail("%s", text);
        }
    }
    FrameQueue::Clock::duration after(std::uint64_t frames) const
    {
        const std::chrono::duration<double> seconds(static_cast<double>(frames) / rate_);
        return std::chrono::duration_cast<FrameQueue::Clock::duration>(seconds);
    }

    std::unique_ptr<FrameSource> source_;
    double rate_;
    std::jthread thread_;
};

/// Removes "@FPS" from the end of a device name and returns the rate, 0 for "max".
double takeRate(std::string& device)
{
    const std::size_t at = device.rfind('@');
    if (at == std::string::npos) return 60;
    const std::string text = device.substr(at + 1);
    double rate = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), rate);
    const bool number = error == std::errc() && end == text.data() + text.size();
    if (text != "max" && !(number && rate >= 0.01 && rate <= 1e5)) {
        // The @ may be part of the file name.
        if (device.starts_with("file:")) return 60;
        failf("capture: rate \"%s\" is neither max nor 0.01 to 100000 frames a second", text.c_str());
    }
    device.resize(at);
    return text == "max" ? 0 : rate;
}

constexpr std::string_view kTest = "test:", kFile = "file:";

}  // namespace

bool isTestDevice(const std::string& device)
{
    return device.starts_with(kTest) || device.starts_with(kFile);
}

std::unique_ptr<CaptureDevice> openTestDevice(const CaptureRequest& request)
{
    std::string device = request.device;
    const double rate = takeRate(device);
    const std::string rest = device.substr(device.find(':') + 1);
    std::unique_ptr<FrameSource> source;
    if (device.starts_with(kFile)) {
        source = std::make_unique<FileSource>(rest, request.jpeg);
    } else {
        const auto pattern = testPattern(rest);
        if (!pattern)
            failf("capture: no test pattern \"%s\"; there are bars, gradient, moving", rest.c_str());
        source = std::make_unique<PatternSource>(*pattern, request);
    }
    return std::make_unique<TestDevice>(std::move(source), rate);
}

}  // namespace scansteps::capture
