// Settings and frame size of the steps with two thresholds: ccanny, ccanny2a, ccanny2b and ccanny2c.
#pragma once

#include "core/print.h"
#include "edges/canny_frame16.h"
#include "grey/sample_coding.h"
#include "scansteps/settings.h"

namespace scansteps::edges {

struct CannySettings
{
    FrameSize frameSize;
    int lowPasses = 0;
    int order = 3;
    float high = 900.0F, low = 400.0F;
    grey::SampleCoding coding = grey::SampleCoding::Offset16;

    static CannySettings read(const Settings& settings)
    {
        CannySettings result;
        result.frameSize = settings.frameSize();
        result.lowPasses = settings.integer("OCV.lp0");
        result.order = settings.integer("OCV.order");
        result.high = settings.real("OCV.trh");
        result.low = settings.real("OCV.trl");
        result.coding = grey::sampleCoding(settings);
        return result;
    }
    /// Prints what these steps print for every frame before the detector runs.
    void print() const
    {
        print::field(order, " order\n");
        print::field(high, " trh\n");
        print::field(low, " trl\n");
    }
};

}  // namespace scansteps::edges
