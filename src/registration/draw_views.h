// Draws the registration of a view with an earlier one into a 16-bit frame.
#pragma once

#include <cstdint>
#include <span>

#include "grey/sample_coding.h"
#include "registration/view_sequence.h"

namespace scansteps::registration {

/// Draws a line for each match, from the feature's position in the earlier view to that in this one, white
/// for inliers and half as bright for the others; and, when the view was registered, the outline of the
/// earlier view in white. The frame has width × height samples.
void drawPose(std::span<std::uint16_t> frame, int width, int height, const ViewPose& pose,
              grey::SampleCoding coding);

}  // namespace scansteps::registration
