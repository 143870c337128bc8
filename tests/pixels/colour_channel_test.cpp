// One channel of colour and video frames, and step c3f.
#include "pixels/colour_channel.h"

#include "pixels/yuyv.h"
#include "support/images.h"
#include "support/test.h"

namespace scansteps {
namespace {

using namespace pixels;

TEST(ColourChannel, knownPixels)
{
    const std::vector<std::uint8_t> rgb{255, 0, 0, 10, 20, 30, 255, 255, 255};
    std::vector<std::uint16_t> out(3);
    const auto expect = [&](Channel channel, std::array<float, 3> weights, std::vector<int> values) {
        channelOfRgb(rgb, out, channel, weights);
        for (std::size_t i = 0; i < 3; ++i) EXPECT_EQ(out[i] - 32768, values[i]) << int(channel);
    };
    expect(Channel::red, {}, {255, 10, 255});
    expect(Channel::green, {}, {0, 20, 255});
    expect(Channel::blue, {}, {0, 30, 255});
    expect(Channel::luma, {}, {76, 18, 255});
    expect(Channel::mixture, {0.5F, -1, 0.25F}, {128, -7, -64});
    expect(Channel::mixture, {1e9F, 0, 0}, {32767, 32767, 32767});
    expect(Channel::mixture, {std::numeric_limits<float>::quiet_NaN(), 0, 0}, {0, 0, 0});
}

TEST(ColourChannel, vectorEqualsScalar)
{
    std::mt19937 random(8);
    std::vector<std::uint8_t> rgb(3 * 5003);
    for (auto& v : rgb) v = std::uint8_t(random());
    std::vector<std::uint16_t> yuyv(5003);
    for (auto& v : yuyv) v = std::uint16_t(random());
    const std::array<float, 3> weights[] = {{0.299F, 0.587F, 0.114F},
                                            {-300, 255.7F, 1e-3F},
                                            {1e9F, -1e9F, 3},
                                            {std::numeric_limits<float>::infinity(), 0, 1},
                                            {std::numeric_limits<float>::quiet_NaN(), 0, 1}};
    for (const std::size_t count : {std::size_t{0}, std::size_t{1}, std::size_t{31}, std::size_t{5003}})
        for (const Channel channel :
             {Channel::red, Channel::green, Channel::blue, Channel::luma, Channel::mixture})
            for (const auto& w : weights) {
                const std::span<const std::uint8_t> pixels(rgb.data(), 3 * count);
                const std::vector<std::uint16_t> out(count);
                expectTwins(channelOfRgb, pixels::scalar::channelOfRgb, pixels, out, channel, w);
                expectTwins(lumaOfYuyv, pixels::scalar::lumaOfYuyv, std::span(yuyv).first(count), out);
            }
}

// The vectorised division by 1000, for every possible sum.
TEST(ColourChannel, everyLuma)
{
    std::vector<std::uint8_t> rgb;
    for (int r = 0; r < 256; ++r)
        for (int g = 0; g < 256; ++g)
            for (const int b : {0, 1, 85, 128, 254, 255})
                for (const int v : {r, g, b}) rgb.push_back(std::uint8_t(v));
    std::vector<std::uint16_t> expected(rgb.size() / 3), out(expected.size());
    pixels::scalar::channelOfRgb(rgb, expected, Channel::luma);
    channelOfRgb(rgb, out, Channel::luma);
    EXPECT_EQ(out, expected);
}

TEST(Cpu3f, colourAndVideoFrames)
{
    const test::Image photo = examplePhoto("img0001.jpg");
    Array frame(Kind::Uchar, std::uint32_t(3 * photo.width), std::uint32_t(photo.height));
    std::ranges::copy(photo.rgb, frame.elements<std::uint8_t>().begin());
    Array video(Kind::Ushort, std::uint32_t(photo.width), std::uint32_t(photo.height));
    rgbToYuyv(photo.rgb, video.elements<std::uint16_t>(), std::size_t(photo.width),
              std::size_t(photo.height));
    for (const bool isVideo : {false, true})
        for (int channel = 0; channel < 5; ++channel) {
            Chain chain({"c3f"});
            Struct settings{
                {"dataX", photo.width},
                {"dataY", photo.height},
                {"dataFormat", isVideo ? "CPU::u_1x16" : "CPU::u_1x8"},
                {"color", Struct{{"channel", channel}, {"red", 1.0F}, {"green", 0.0F}, {"blue", -1.0F}}}};
            if (isVideo) settings.set("VideoFormat", "YUYV16");
            EXPECT_EQ(chain.init(settings), event::kInit);
            EXPECT_EQ(chain.arrived[0].record["dataFormat"].as<std::string>(), "CPU::u_1x16");
            EXPECT_FALSE(chain.arrived[0].record.has("VideoFormat"));
            chain.process(isVideo ? &video : &frame);
            const auto out = chain.arrived.at(1).frame->elements<std::uint16_t>();
            ASSERT_EQ(out.size(), photo.rgb.size() / 3);
            double difference = 0;
            for (std::size_t i = 0; i < out.size(); ++i) {
                const int r = photo.rgb[3 * i], g = photo.rgb[3 * i + 1], b = photo.rgb[3 * i + 2];
                const int expected[] = {
                    r, g, b,
                    isVideo ? 16 + (66 * r + 129 * g + 25 * b) / 256 : (299 * r + 587 * g + 114 * b) / 1000,
                    r - b};
                difference += std::abs(out[i] - 32768 - expected[channel]);
            }
            // chroma is halved along the rows of a video frame
            EXPECT_LT(difference / double(out.size()), isVideo ? 6 : 0.6) << channel;
        }
    Chain chain({"c3f"});
    // A format whose frames would be refused is reported at initialise.
    for (const auto& [format, isVideo] : {std::pair{"u_1x16", false}, {"u_1x8", true}}) {
        Struct record{{"dataX", 4}, {"dataY", 4}, {"dataFormat", format}};
        if (isVideo) record.set("VideoFormat", "YUYV16");
        chain.init(record);
        EXPECT_EQ(chain.arrived[0].eventType, event::kMismatch);
        chain.arrived.clear();
    }
}

}  // namespace
}  // namespace scansteps
