// Rows dumped to a file, and frames held back until there is a burst of them.

#include "support/test.h"

namespace scansteps {
namespace {

Array filled(std::uint32_t rowLength, std::uint32_t rows, int value)
{
    Array frame(Kind::Ushort, rowLength, rows);
    for (auto& sample : frame.elements<std::uint16_t>()) sample = static_cast<std::uint16_t>(value);
    return frame;
}

Struct dumpTo(const std::string& path, int row)
{
    return geometryOf(4, 3, {{"numberOfViews", 2}, {"dump", Struct{{"name", path}, {"row", row}}}});
}

TEST(CPUDump, AppendsARowAFrame)
{
    const TempDir dir;
    Chain chain({"cdump"});
    const std::string out = printed([&] { chain.init(dumpTo(dir / "rows.raw", 1)); });
    EXPECT_EQ(out,
              "              4 W\n              2 numberOfViews\nCPUDump::init OK\n\"CPUDump::init OK\"\n");
    std::string expected;
    for (int i = 0; i < 3; ++i) {
        Array frame = filled(4, 3, i);
        for (int x = 0; x < 4; ++x)
            frame.elements<std::uint16_t>()[std::size_t(4 + x)] = std::uint16_t(0x4000 + 16 * i + x);
        expected.append(reinterpret_cast<const char*>(frame.data()) + 8, 8);
        chain.process(&frame);
        EXPECT_TRUE(varitype(*chain.arrived.back().frame).equals(frame));
    }
    chain.flush();
    EXPECT_EQ(readFile(dir / "rows.raw"), expected);
    EXPECT_EQ(chain.arrived.back().eventType, 1003);
}

TEST(CPUDump, ReportsFramesAndFilesThatFail)
{
    const TempDir dir;
    Chain chain({"cdump"});
    EXPECT_EQ(thrownText([&] { chain.init(dumpTo(dir / "no/folder", 1)); }), "write error");
    chain.init(dumpTo(dir / "rows.raw", 2));
    const Array two = filled(4, 2, 0);
    EXPECT_EQ(thrownText([&] { chain.process(&two); }), "CPUDump: row 2 of a frame of 2 rows");
    std::string error;
    EXPECT_EQ(printed([&] { error = thrownText([&] {
                                chain.process(nullptr, {{"handle", 99}});
                            }); }),
              "Error err\n");
    EXPECT_EQ(error, "Handle::zero handle!!!");
}

Struct bufferOf(int size)
{
    return geometryOf(4, 3, {{"Buff", Struct{{"Size", size}}}});
}

std::vector<int> numbersOf(const Chain& chain)
{
    std::vector<int> numbers;
    for (const auto& each : chain.arrived)
        if (each.eventType == 1002) {
            const int number = each.record["number"].as<int>();
            EXPECT_TRUE(varitype(*each.frame).equals(filled(4, 3, number)));
            numbers.push_back(number);
        }
    return numbers;
}

TEST(CPUDBuff, ReleasesBurstsInOrder)
{
    Chain chain({"cbuff"});
    EXPECT_EQ(printed([&] { chain.init(bufferOf(4)); }), "CPUDBuff::init OK\n\"CPUDBuff::init OK\"\n");
    std::vector<std::size_t> after;
    for (int i = 1; i <= 9; ++i) {
        const Array frame = filled(4, 3, i);
        chain.process(&frame, {{"number", i}});
        after.push_back(numbersOf(chain).size());
    }
    EXPECT_EQ(after, (std::vector<std::size_t>{0, 0, 0, 4, 4, 4, 4, 8, 8}));
    chain.flush();
    EXPECT_EQ(numbersOf(chain), (std::vector<int>{1, 2, 3, 4, 5, 6, 7, 8, 9}));
    EXPECT_EQ(chain.arrived.back().eventType, 1003);
    chain.flush();
    EXPECT_EQ(numbersOf(chain).size(), 9U);
}

TEST(CPUDBuff, OfOneFrameForwardsAtOnceThroughItsSlot)
{
    Chain chain({"cbuff"});
    chain.init(bufferOf(1));
    const Array wide = filled(12, 3, 5);  // such as RGB: the slot adopts the shape of the frame
    chain.process(&wide);
    EXPECT_TRUE(varitype(*chain.arrived.back().frame).equals(wide));
    EXPECT_TRUE(varitype(chain.hostPixels()).equals(wide));
}

// An error in the middle of a burst loses only the frame that caused it.
TEST(CPUDBuff, GoesOnWithTheBurstAfterAnError)
{
    Chain chain({"cbuff", "c2ima"});
    Struct settings = bufferOf(3);
    settings.set("combine", Struct{{"factor", 1}});
    chain.init(settings);
    for (int i = 1; i <= 4; ++i) {
        const Array frame = i == 2 ? filled(1, 1, i) : filled(4, 3, i);
        EXPECT_EQ(thrownText([&] { chain.process(&frame, {{"number", i}}); }) == "", i != 3) << i;
    }
    chain.flush();
    EXPECT_EQ(numbersOf(chain), (std::vector<int>{1, 3, 4}));
}

TEST(CPUDBuff, SecondInitDropsWhatWasHeldBack)
{
    Chain chain({"cbuff"});
    const Array frame = filled(4, 3, 1);
    chain.init(bufferOf(3));
    chain.process(&frame, {{"number", 1}});
    chain.init(bufferOf(2));
    chain.flush();
    EXPECT_TRUE(numbersOf(chain).empty());
    std::string error;
    EXPECT_EQ(printed([&] { error = thrownText([&] {
                                chain.process(nullptr, {{"handle", 0}});
                            }); }),
              "Error err\n");
    EXPECT_EQ(error, "Handle::Invalid handle!!!");
}

}  // namespace
}  // namespace scansteps
