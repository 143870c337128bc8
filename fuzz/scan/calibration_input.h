// What the fuzz target of calibration and pattern files does with its input, shared with the test that
// replays the corpus.
#pragma once

#include <plugins/scan/calibration.h>
#include <plugins/scan/patterns.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

namespace scansteps::fuzzing {

/// Aborts unless a text that is accepted is written as one that reads back the same, and one that is refused
/// comes with a message.
template <class Read, class Write>
void readAndWrite(std::string_view text, Read read, Write write)
{
    try {
        const std::string first = write(read(text));
        if (write(read(first)) != first) std::abort();
    } catch (const char* message) {
        if (*message == '\0') std::abort();
    }
}

inline void readCalibrationFiles(const std::uint8_t* data, std::size_t size)
{
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    readAndWrite(text, scan::parseCalibration, scan::calibrationJson);
    readAndWrite(text, scan::parsePatternSeries, scan::patternSeriesJson);
}

}  // namespace scansteps::fuzzing
