// Step ccorner5: corner features of frames taken two at a time, one thread a frame.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <vector>

#include "corners/corners.h"
#include "grey/grey_from_frame.h"
#include "regions/mser.h"
#include "scansteps/chain.h"
#include "scansteps/settings.h"
#include "scansteps/texture.h"

namespace scansteps::corners {

class CpuCorners5 final : public CPUBase
{
  public:
    const char* getName() override { return "CpuCorners5"; }
    void init(varitype& params) override;
    void process(varitype& params) override;
    /// A frame that waits for its partner is worked on alone first.
    void flush(varitype& params) override;

  private:
    // What one thread works with, and what it leaves for the time after the join.
    struct Worker
    {
        CornerDetector detector;
        grey::GreyImage grey, clamped;
        std::unique_ptr<regions::MSER> mser;  // none where a region of kMostArea has no room
        std::vector<regions::Region> found;
        std::vector<CornerFeature> features;
        std::vector<std::int32_t> indices;
        std::size_t dropped = 0;
        const char* error = nullptr;
    };

    void processPending();
    void work(Worker& worker, std::span<const std::uint16_t> frame) const;
    void findRegions(Worker& worker, std::span<const std::uint16_t> frame) const;
    void report(const Worker& worker, varitype& record) const;

    FrameSize frameSize_;
    CornerSettings settings_;
    int mode_ = 0, video_ = 1, cpuBase_ = 0;  // mode and base are kept, without effect
    grey::SampleCoding coding_ = grey::SampleCoding::Offset16;
    TextureSet frames_;
    std::array<Worker, 2> workers_;
    std::vector<varitype> pending_;
};

}  // namespace scansteps::corners
