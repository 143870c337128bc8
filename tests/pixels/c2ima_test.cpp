// Frames side by side, and the filter for one event.

#include "support/test.h"

namespace scansteps {
namespace {

Struct initFor(int factor, const char* format = "CPU::u_1x16")
{
    return {{"dataX", 4}, {"dataY", 3}, {"dataFormat", format}, {"combine", Struct{{"factor", factor}}}};
}

// Sample (x, y) of segment k of the combined frame.
int sample(const Array& wide, int k, int x, int y)
{
    return wide.elements<std::uint16_t>()[std::size_t(y) * wide.dim(0) + std::size_t(4 * k + x)];
}

TEST(CpuCombine, PutsTheNewestAtTheLeft)
{
    Chain chain({"c2ima"});
    chain.init(initFor(3));
    EXPECT_EQ(chain.arrived[0].record["dataX"].as<int>(), 12);
    for (int i = 1; i <= 5; ++i) {
        const Array frame = countingFrame(4, 3, 100 * i);
        chain.process(&frame);
        const Array& wide = *chain.arrived.back().frame;
        ASSERT_TRUE(wide.hasShape(Kind::Ushort, 12, 3));
        for (int k = 0; k < 3; ++k)
            for (int y = 0; y < 3; ++y)
                for (int x = 0; x < 4; ++x)
                    EXPECT_EQ(sample(wide, k, x, y), i > k ? 100 * (i - k) + 4 * y + x : 0);
        // The oldest frame is returned under the host's handle.
        EXPECT_TRUE(varitype(chain.hostPixels())
                        .equals(i > 3 ? countingFrame(4, 3, 100 * (i - 3)) : Array(Kind::Ushort, 4, 3)));
    }
    chain.init(initFor(3));  // clears the history
    const Array frame = countingFrame(4, 3, 9);
    chain.process(&frame);
    EXPECT_EQ(sample(*chain.arrived.back().frame, 1, 0, 0), 0);
}

TEST(CpuCombine, RefusesWhatItCannotCombine)
{
    Chain chain({"c2ima"});
    for (const char* format : {"CPU::nothing", "CPU::u_1x8", "CPU::f_1x32", "CPU::f_4x16"}) {
        chain.arrived.clear();
        chain.init(initFor(2, format));
        EXPECT_EQ(chain.arrived[0].eventType, 1004) << format;
        EXPECT_EQ(chain.arrived[1].eventType, 1004) << format;
    }

    chain.init(initFor(2));
    const Array small = countingFrame(4, 2, 0);
    EXPECT_EQ(thrownText([&] { chain.process(&small); }),
              "CpuCombine: the frame is 4 x 2 x 1 Ushort, too small for 4 x 3 16-bit samples");
    const Array frame = countingFrame(4, 3, 1);
    chain.process(&frame);  // a refused frame does not enter the history
    EXPECT_EQ(sample(*chain.arrived.back().frame, 1, 0, 0), 0);
}

TEST(MessFilter, LetsOneEventThrough)
{
    const auto passed = [](int value) {
        Chain chain({"mfilt"});
        std::vector<int> numbers;
        for (int run = 0; run < 2; ++run) {  // init resets the counter
            chain.arrived.clear();
            chain.init({{"mfilt", Struct{{"val", value}}}});
            for (int i = 1; i <= 8; ++i) chain.process(nullptr, {{"number", i}});
            for (const auto& each : chain.arrived)
                if (each.eventType == 1002) numbers.push_back(each.record["number"].as<int>());
        }
        return numbers;
    };
    EXPECT_EQ(passed(5), (std::vector<int>{5, 5}));
    EXPECT_EQ(passed(1), (std::vector<int>{1, 1}));
    EXPECT_TRUE(passed(0).empty());
    EXPECT_TRUE(passed(-1).empty());
    EXPECT_TRUE(passed(9).empty());
}

}  // namespace
}  // namespace scansteps
