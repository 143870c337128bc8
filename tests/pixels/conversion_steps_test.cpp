// The conversion steps in chains: formats, sizes and what they print.

#include "support/test.h"

namespace scansteps {
namespace {

template <class T>
Array arrayOf(std::uint32_t rowLength, std::uint32_t rows, const std::vector<T>& values)
{
    Array array(kindOf<T>(), rowLength, rows);
    std::ranges::copy(values, array.elements<T>().begin());
    return array;
}

template <class T>
std::vector<T> valuesOf(const Array& array)
{
    const auto elements = array.elements<T>();
    return {elements.begin(), elements.end()};
}

Struct geometry(int width, int height, const char* format)
{
    return {{"dataX", width}, {"dataY", height}, {"dataFormat", format}};
}

TEST(ConversionSteps, floatToShortAndBack)
{
    Chain chain({"cf2u", "cu2f"});
    EXPECT_EQ(chain.init(geometry(4, 1, "CPU::f_1x32")), event::kInit);
    EXPECT_EQ(chain.arrived[0].record["dataFormat"].as<std::string>(), "CPU::f_1x32");
    const Array frame = arrayOf<float>(4, 1, {1.5F, -0.5F, 40000.0F, -40000.0F});
    for (int i = 0; i < 3; ++i) {
        chain.process(&frame, {{"mark", 5}});
        EXPECT_EQ(valuesOf<float>(*chain.arrived.back().frame), (std::vector<float>{1, -1, 32767, -32767}));
        EXPECT_EQ(chain.arrived.back().record["mark"].as<std::int32_t>(), 5);
    }
}

TEST(ConversionSteps, missingOrWrongFormatIsReportedAndTheStepWorksAllTheSame)
{
    for (const Struct& record : {geometry(2, 1, "CPU::u_1x16"), Struct{{"dataX", 2}, {"dataY", 1}}}) {
        Chain chain({"cf2u"});
        EXPECT_EQ(chain.init(record), event::kMismatch);
        ASSERT_EQ(chain.arrived.size(), 2U) << "at once, and at the end of the initialise event";
        EXPECT_EQ(chain.arrived[0].eventType, event::kMismatch);
        EXPECT_EQ(chain.arrived[1].record["dataFormat"].as<std::string>(), "CPU::u_1x16");
        const Array frame = arrayOf<float>(2, 1, {0, 1});
        chain.process(&frame);
        EXPECT_EQ(valuesOf<std::uint16_t>(*chain.arrived.back().frame),
                  (std::vector<std::uint16_t>{32768, 32769}));
    }
}

TEST(ConversionSteps, rgbToYuyvToRgb)
{
    Chain chain({"cyuv", "crgb"});
    chain.init(geometry(2, 1, "u_1x8"));
    EXPECT_FALSE(chain.arrived[0].record.has("VideoFormat"));
    EXPECT_EQ(chain.arrived[0].record["dataFormat"].as<std::string>(), "CPU::u_1x8");
    const Array grey = arrayOf<std::uint8_t>(6, 1, {100, 100, 100, 200, 200, 200});
    chain.process(&grey);
    const auto rgb = valuesOf<std::uint8_t>(*chain.arrived.back().frame);
    for (std::size_t i = 0; i < 6; ++i) EXPECT_NEAR(rgb[i], i < 3 ? 100 : 200, 2);

    Chain open({"cyuv"});
    open.init({{"dataX", 2}, {"dataY", 1}});
    EXPECT_FALSE(open.arrived[0].record.has("dataFormat"));
    EXPECT_EQ(open.arrived[0].record["VideoFormat"].as<std::string>(), "YUYV16");
}

TEST(ConversionSteps, colourLengthPrintsTheSizeOfEveryFrame)
{
    Chain chain({"c3t1"});
    printed([&] { chain.init(geometry(2, 1, "u_1x8")); });
    EXPECT_EQ(chain.arrived[0].record["dataFormat"].as<std::string>(), "CPU::u_1x16");
    const Array frame = arrayOf<std::uint8_t>(6, 1, {0, 0, 0, 255, 255, 255});
    const std::string text = printed([&] { chain.process(&frame); });
    EXPECT_EQ(text, "              6 view0->getX()\n              1 view0->getY()\n              2 W\n");
    EXPECT_EQ(valuesOf<std::uint16_t>(*chain.arrived.back().frame),
              (std::vector<std::uint16_t>{32768, 33209}));
}

TEST(ConversionSteps, reductionTellsTheReducedSizeToTheNextStepOnly)
{
    Chain chain({"cdown1"});
    Struct record = geometry(5, 2, "u_1x16");
    record.set("down1", Struct{{"factor", 2}});
    varitype sent{record};
    sent.set("eventType", event::kInit);
    chain.send(sent);
    EXPECT_EQ(sent["dataX"].as<std::int32_t>(), 5);
    EXPECT_EQ(chain.arrived.back().record["dataX"].as<std::int32_t>(), 2);
    EXPECT_EQ(chain.arrived.back().record["dataY"].as<std::int32_t>(), 1);
    const Array frame = arrayOf<std::uint16_t>(5, 2, {32768, 32769, 1, 3, 9, 32770, 32772, 5, 7, 9});
    chain.process(&frame);
    EXPECT_EQ(valuesOf<std::uint16_t>(*chain.arrived.back().frame), (std::vector<std::uint16_t>{32769, 4}));

    const Array small = arrayOf<std::uint8_t>(5, 2, std::vector<std::uint8_t>(10));
    record.set("dataFormat", "CPU::u_1x8");
    chain.init(record);
    EXPECT_NE(thrownText([&] { chain.process(&small); }).find("8-bit frames cannot"), std::string::npos);
}

}  // namespace
}  // namespace scansteps
