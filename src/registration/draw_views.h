// Drawing of how a view lies to an earlier one into a 16-bit frame.
#pragma once

#include <cstdint>
#include <span>

#include "grey/grey_from_frame.h"
#include "registration/view_sequence.h"

namespace scansteps::registration {

/// A line for each match, from where the feature was in the earlier view to where it is now, white for those
/// that agree with the registration and half as bright for the others, and in white the outline of the
/// earlier view as this one sees it, when there is a registration.
void drawPlace(std::span<std::uint16_t> frame, int width, int height, const ViewPose& place,
               grey::SampleCoding coding);

}  // namespace scansteps::registration
