// Series of patterns to project: white, black, the bits of a Gray code with their inverses, and a sinusoid in
// several shifts, in one or both directions; and patterns.json, which tells decoders their order.
//
// A projector pixel x (0: the first) lies in period floor(x / period). The bits tell its number in the Gray
// code; the sinusoid tells the place within the period: level(x, k) is proportional to
// 1 + cos(2 pi (x + 0.5) / period - 2 pi k / shifts), so that its phase is 0 on the border of two periods.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace scansteps::scan {

enum class PatternKind
{
    White,
    Black,
    Gray,
    Phase,
};

enum class Axis
{
    Column,  ///< varies along x
    Row,     ///< varies along y
};

struct Pattern
{
    PatternKind kind = PatternKind::White;
    Axis axis = Axis::Column;  ///< of Gray and Phase
    int number = 0;            ///< Gray: the bit, 0 the least significant; Phase: the shift
    bool inverse = false;      ///< of Gray

    friend bool operator==(const Pattern&, const Pattern&) = default;
};

struct PatternSeries
{
    int width = 0, height = 0;  ///< of the projector, pixels
    int period = 16;            ///< of the sinusoid, pixels
    int shifts = 8;             ///< number of phase shifts, at least 3
    bool hasRows = false;       ///< whether rows are coded as well as columns
    std::vector<Pattern> patterns;
    std::vector<std::string> files;  ///< name of each pattern's picture; may be empty

    int extent(Axis axis) const { return axis == Axis::Column ? width : height; }
    int periods(Axis axis) const { return (extent(axis) + period - 1) / period; }
    int bits(Axis axis) const;
    /// Position of a pattern in the series; -1 if it is not there.
    int indexOf(const Pattern& pattern) const;
};

inline constexpr int kMaxShifts = 64;

/// White, black, then for the columns and, if `hasRows`, the rows: each bit from the most significant one,
/// followed by its inverse, and the shifts. Throws a text for a size outside 2 to 65535, a period outside 4
/// to the width (and height), or shifts outside 3 to 64.
PatternSeries makePatternSeries(int width, int height, int period = 16, int shifts = 8, bool hasRows = false);

/// Level, 0 to 255, of the projector pixel at `position` along the axis of the pattern.
std::uint8_t patternLevel(const PatternSeries& series, const Pattern& pattern, int position);
/// The picture of a pattern, width x height bytes, row by row.
std::vector<std::uint8_t> patternPicture(const PatternSeries& series, const Pattern& pattern);
/// "white", "bit 6 of the columns", "bit 6 of the columns, inverse", "shift 0 of the columns".
std::string describe(const Pattern& pattern);

/// patterns.json. The order of its list is the order in which pictures are taken.
std::string patternSeriesJson(const PatternSeries& series);
/// Reads it. Throws "patterns: PATH: REASON" when it does not conform to the schema or the list lacks a
/// pattern or has one twice.
PatternSeries parsePatternSeries(std::string_view text);
PatternSeries readPatternSeries(const std::string& fileName);

extern const std::string_view kPatternsSchema;

}  // namespace scansteps::scan
