// The patterns of a series and their levels.
#include "patterns.h"

#include <scansteps/error.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <numbers>

namespace scansteps::scan {
namespace {

const char* axisName(Axis axis)
{
    return axis == Axis::Column ? "columns" : "rows";
}

void addAxis(PatternSeries& series, Axis axis)
{
    for (int bit = series.bits(axis) - 1; bit >= 0; --bit)
        for (const bool inverse : {false, true})
            series.patterns.push_back({PatternKind::Gray, axis, bit, inverse});
    for (int shift = 0; shift < series.shifts; ++shift)
        series.patterns.push_back({PatternKind::Phase, axis, shift, false});
}

}  // namespace

int PatternSeries::bits(Axis axis) const
{
    return std::max(1, static_cast<int>(std::bit_width(static_cast<unsigned>(periods(axis) - 1))));
}

int PatternSeries::indexOf(const Pattern& pattern) const
{
    const auto found = std::ranges::find(patterns, pattern);
    return found == patterns.end() ? -1 : static_cast<int>(found - patterns.begin());
}

PatternSeries makePatternSeries(int width, int height, int period, int shifts, bool hasRows)
{
    const auto isSize = [](int extent) { return extent >= 2 && extent <= 65535; };
    if (!isSize(width) || !isSize(height))
        failf("patterns: a size of %d x %d pixels, must be 2 to 65535 each way", width, height);
    if (period < 4 || period > width || (hasRows && period > height))
        failf("patterns: a period of %d pixels, must be 4 to the size of the projector", period);
    if (shifts < 3 || shifts > kMaxShifts)
        failf("patterns: %d phase shifts, must be 3 to %d", shifts, kMaxShifts);
    PatternSeries series{width, height, period, shifts, hasRows, {}, {}};
    series.patterns = {{PatternKind::White, Axis::Column, 0, false},
                       {PatternKind::Black, Axis::Column, 0, false}};
    addAxis(series, Axis::Column);
    if (hasRows) addAxis(series, Axis::Row);
    return series;
}

std::uint8_t patternLevel(const PatternSeries& series, const Pattern& pattern, int position)
{
    switch (pattern.kind) {
        case PatternKind::White:
            return 255;
        case PatternKind::Black:
            return 0;
        case PatternKind::Gray: {
            const int period = position / series.period;
            const bool isSet = ((period ^ (period >> 1)) >> pattern.number & 1) != 0;
            return isSet != pattern.inverse ? 255 : 0;
        }
        case PatternKind::Phase: {
            const double turns = (position + 0.5) / series.period - double(pattern.number) / series.shifts;
            return static_cast<std::uint8_t>(
                std::lround(127.5 * (1 + std::cos(2 * std::numbers::pi * turns))));
        }
    }
    return 0;
}

std::vector<std::uint8_t> patternPicture(const PatternSeries& series, const Pattern& pattern)
{
    const auto width = static_cast<std::size_t>(series.width),
               height = static_cast<std::size_t>(series.height);
    std::vector<std::uint8_t> picture(width * height);
    const bool isRow = pattern.axis == Axis::Row;
    std::vector<std::uint8_t> levels(isRow ? height : width);
    for (std::size_t i = 0; i < levels.size(); ++i)
        levels[i] = patternLevel(series, pattern, static_cast<int>(i));
    for (std::size_t y = 0; y < height; ++y) {
        const auto row = picture.begin() + static_cast<std::ptrdiff_t>(y * width);
        if (isRow)
            std::fill_n(row, width, levels[y]);
        else
            std::ranges::copy(levels, row);
    }
    return picture;
}

std::string describe(const Pattern& pattern)
{
    const std::string number = std::to_string(pattern.number), axis = axisName(pattern.axis);
    switch (pattern.kind) {
        case PatternKind::White:
            return "white";
        case PatternKind::Black:
            return "black";
        case PatternKind::Gray:
            return "bit " + number + " of the " + axis + (pattern.inverse ? ", inverse" : "");
        case PatternKind::Phase:
            return "shift " + number + " of the " + axis;
    }
    return "";
}

}  // namespace scansteps::scan
