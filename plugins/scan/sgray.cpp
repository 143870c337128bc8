// Step sgray: collects a pattern series and decodes it with its last picture.
#include <scansteps/chain.h>
#include <scansteps/error.h>
#include <scansteps/frame.h>
#include <scansteps/step_factory.h>

#include <cstdio>
#include <optional>
#include <utility>
#include <vector>

#include "gray_decode.h"
#include "patterns.h"
#include "series_check.h"
#include "step_frame.h"

namespace scansteps::scan {

class Sgray final : public CPUBase
{
  public:
    const char* getName() override { return "Sgray"; }
    void init(varitype& params) override;
    void process(varitype& params) override;
    /// Throws when a series is incomplete.
    void flush(varitype& params) override;

  private:
    void decodeInto(varitype& record);
    CodedPictures codedPictures(Axis axis) const;
    const std::int16_t* picture(const Pattern& pattern) const
    {
        return pictures_[std::size_t(series_.indexOf(pattern))].data();
    }

    PatternSeries series_;
    DecodeLimits limits_;
    std::optional<float> noise_;
    FrameCoding coding_ = FrameCoding::Rgb8;
    std::vector<std::vector<std::int16_t>> pictures_;
    std::size_t arrived_ = 0;
    Array white_;
    TextureSet frame_;
};

SCANSTEPS_FACTORY(sgray, Sgray)

void Sgray::init(varitype& params)
{
    const Settings settings(*this, params);
    series_ = readPatternSeries(settings.text("sgray.patterns"));
    limits_.contrast = settings.real("sgray.contrast");
    limits_.saturated = settings.real("sgray.saturated");
    limits_.amplitude = settings.real("sgray.amplitude");
    limits_.weak = settings.real("sgray.weak");
    const float noise = settings.real("sgray.noise");
    noise_ = noise < 0 ? std::nullopt : std::optional(noise);
    pictures_.clear();
    arrived_ = 0;
    if (!createFrames(*this, params, frame_, coding_)) return;
    pictures_.resize(series_.patterns.size());
    forward(*this, params);
}

void Sgray::process(varitype& params)
{
    StepTimer timer(*this);
    FrameScope frame(*this, params, frame_);
    std::vector<std::int16_t>& levels = pictures_[arrived_];
    levels.resize(std::size_t(frame_.width()) * frame_.height());
    levelsOf(frame_.pixels(), coding_, levels);
    if (series_.patterns[arrived_].kind == PatternKind::White) white_ = frame_.pixels();
    if (++arrived_ < pictures_.size()) {
        timer.stop();
        return;
    }
    arrived_ = 0;
    const std::string fault = seriesFault(series_, pictures_, int(frame_.width()), int(frame_.height()));
    if (!fault.empty()) failf("sgray: %s", fault.c_str());
    decodeInto(frame.record());
    frame_.pixels() = white_;
    frame.forward();
}

CodedPictures Sgray::codedPictures(Axis axis) const
{
    CodedPictures coded;
    coded.white = picture({PatternKind::White, Axis::Column, 0, false});
    coded.black = picture({PatternKind::Black, Axis::Column, 0, false});
    for (int bit = series_.bits(axis) - 1; bit >= 0; --bit) {
        coded.bits.push_back(picture({PatternKind::Gray, axis, bit, false}));
        coded.inverses.push_back(picture({PatternKind::Gray, axis, bit, true}));
    }
    for (int shift = 0; shift < series_.shifts; ++shift)
        coded.shifts.push_back(picture({PatternKind::Phase, axis, shift, false}));
    coded.period = series_.period;
    coded.extent = series_.extent(axis);
    return coded;
}

void Sgray::decodeInto(varitype& record)
{
    const std::uint32_t width = frame_.width(), height = frame_.height();
    const std::size_t count = pictures_.front().size();
    std::vector<std::uint8_t> discard(count);
    for (const Axis axis : {Axis::Column, Axis::Row}) {
        if (axis == Axis::Row && !series_.hasRows) break;
        const CodedPictures coded = codedPictures(axis);
        limits_.noise = noise_ ? NoiseModel{*noise_ * *noise_, 0} : estimateNoise(coded, count);
        Array position(Kind::Float, width, height), quality(Kind::Float, width, height);
        const DecodedPixels out{position.elements<float>(), quality.elements<float>(), discard};
        decodeSeries(coded, limits_, out);
        discardIsolated(width, height, series_.period, out);
        record.set(axis == Axis::Column ? "column" : "row", std::move(position));
        if (axis == Axis::Row) continue;
        record.set("quality", std::move(quality));
        const auto counts = countDiscards(discard);
        const auto number = [&](Discard why) { return int(counts[std::size_t(why)]); };
        record.set("discarded", Struct{{"dark", number(Discard::Dark)},
                                       {"saturated", number(Discard::Saturated)},
                                       {"weak", number(Discard::Weak)},
                                       {"ambiguous", number(Discard::Ambiguous)}});
        record.set("noise", Struct{{"constant", limits_.noise.constant}, {"gain", limits_.noise.gain}});
        std::printf("%15d measured\n%15d dark\n%15d saturated\n%15d weak\n%15d ambiguous\n",
                    number(Discard::None), number(Discard::Dark), number(Discard::Saturated),
                    number(Discard::Weak), number(Discard::Ambiguous));
    }
}

void Sgray::flush(varitype& params)
{
    CPUBase::flush(params);
    if (arrived_ == 0) return;
    const std::size_t arrived = std::exchange(arrived_, 0);
    const std::string fault =
        seriesFault(series_, std::span(pictures_).first(arrived), int(frame_.width()), int(frame_.height()));
    failf("sgray: the series ended after %zu of %zu pictures%s%s", arrived, pictures_.size(),
          fault.empty() ? "" : ": ", fault.c_str());
}

}  // namespace scansteps::scan
