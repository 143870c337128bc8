// Pattern series, and the command that writes them.
#include <plugins/images/decode.h>
#include <plugins/scan/patterns.h>

#include "support/process.h"
#include "support/test.h"

namespace scansteps::scan {
namespace {

TEST(ScanPatterns, neighbouringPeriodsDifferInOneBitAndTheShiftsAddUp)
{
    const PatternSeries series = makePatternSeries(1280, 800, 16, 8, true);
    ASSERT_EQ(series.patterns.size(), 2U + 14 + 8 + 12 + 8);
    for (int period = 1; period < 80; ++period) {
        int changes = 0;
        for (int bit = 0; bit < series.bits(Axis::Column); ++bit) {
            const auto at = [&](int x, bool inverse) {
                return int{patternLevel(series, {PatternKind::Gray, Axis::Column, bit, inverse}, x)};
            };
            changes += at(period * 16, false) != at(period * 16 - 1, false);
            EXPECT_EQ(at(period * 16, false) + at(period * 16, true), 255);
        }
        EXPECT_EQ(changes, 1) << period;
    }
    // The phase is 0 on the border between two periods and grows with x.
    for (const int x : {0, 5, 16, 1279}) {
        double sine = 0, cosine = 0;
        for (int k = 0; k < 8; ++k) {
            const double level = patternLevel(series, {PatternKind::Phase, Axis::Column, k, false}, x);
            sine += level * std::sin(2 * std::numbers::pi * k / 8);
            cosine += level * std::cos(2 * std::numbers::pi * k / 8);
        }
        const double turns = std::atan2(sine, cosine) / (2 * std::numbers::pi);
        const double place = (x + 0.5) / 16;
        EXPECT_NEAR(turns - std::floor(turns), place - std::floor(place), 1e-3) << x;
    }
}

TEST(ScanPatterns, theListOfTheFileHasEveryPatternOnce)
{
    const PatternSeries series = makePatternSeries(40, 30, 10, 3, true);
    const std::string text = patternSeriesJson(series);
    EXPECT_EQ(parsePatternSeries(text).patterns, series.patterns);
    const std::vector<std::tuple<std::string, std::string, std::string>> cases = {
        {"\"kind\": \"black\"", "\"kind\": \"white\"", "patterns: /patterns/1: white is there twice"},
        {"\"period\": 10", "\"period\": 50", "patterns: a period of 50 pixels"},
        {"\"period\": 10", "\"period\": 5", "patterns: /patterns: bit 2 of the columns is missing"},
        {"\"bit\": 1", "\"bit\": 9",
         "patterns: /patterns/2: bit 9 of the columns has no place in the series"},
        {"\"bit\": 1", "\"shift\": 1", "patterns: /patterns/2: has no \"bit\""},
        {"\"shifts\": 3", "\"shifts\": 2", "patterns: /shifts: "},
        {"\"gray\"", "\"grey\"", "patterns: /patterns/2/kind: "},
    };
    for (const auto& [from, to, message] : cases) {
        std::string changed = text;
        changed.replace(changed.find(from), from.size(), to);
        EXPECT_THAT(thrownText([&] { parsePatternSeries(changed); }), StartsWith(message));
    }
}

TEST(ScanPatterns, theCommandWritesPicturesAndTheirList)
{
    const TempDir folder;
    const std::string out = (folder.path() / "patterns").string();
    const ProgramResult result =
        runProgram("patterns --size 64x20 --rows --phases 4 --period 8 --out " + out);
    ASSERT_EQ(result.exitCode, 0) << result.err;
    const PatternSeries series = readPatternSeries(out + "/patterns.json");
    EXPECT_EQ(series.patterns, makePatternSeries(64, 20, 8, 4, true).patterns);
    for (std::size_t i = 0; i < series.patterns.size(); ++i) {
        const std::string file = readFile(out + "/" + series.files[i]);
        const auto picture =
            imageio::decodePng({reinterpret_cast<const std::uint8_t*>(file.data()), file.size()}, {});
        ASSERT_EQ(picture.width(), 64);
        const auto levels = patternPicture(series, series.patterns[i]);
        const auto samples = picture.pixels.elements<std::uint16_t>();
        for (std::size_t k = 0; k < levels.size(); ++k) ASSERT_EQ(samples[k], 32768 + levels[k]) << i;
    }
    const std::vector<std::pair<std::string, std::string>> wrong = {
        {"--size 64 --out " + out, "--size 64 is not of the form 1280x800"},
        {"--size 64x20 --period 8 --out " + out, "patterns.json exists: give --force"},
        {"--size 64x20 --period 2 --out " + out, "a period of 2 pixels"},
        {"--size 64x20 --phases 2 --out " + out, "2 phase shifts"},
        {"--out " + out, "--size is required"},
    };
    for (const auto& [arguments, message] : wrong) {
        const ProgramResult refused = runProgram("patterns " + arguments);
        EXPECT_EQ(refused.exitCode, 2) << arguments;
        EXPECT_THAT(refused.err, HasSubstr(message));
    }
    EXPECT_EQ(runProgram("patterns --size 64x20 --out /dev/null/x").exitCode, 5);
}

}  // namespace
}  // namespace scansteps::scan
