// Whether the pictures of a series are what they should be: complete, in order, and of an object at rest.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "patterns.h"

namespace scansteps::scan {

/// What is wrong with a series, in words that name the pictures (counted from 1); empty when nothing is.
/// `pictures` are width x height samples each, in the order of the series, of which the last one may be
/// missing. Uses every sixteenth row. Tests what holds for any object: a bit's picture and its inverse add up
/// to white plus black; the shifts form a sinusoid; decoded columns are continuous where the period changes.
/// When that does not hold, it looks for the exchange, the omission or the repetition of a picture that
/// explains it, and for bits from which on the object is elsewhere.
std::string seriesFault(const PatternSeries& series, std::span<const std::vector<std::int16_t>> pictures,
                        int width, int height);

}  // namespace scansteps::scan
