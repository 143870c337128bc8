// Live capture without a camera: the queue between the threads, the test devices, and the capture step on
// them.
#include "capture/capture.h"

#include "capture/camera_runs.h"
#include "capture/test_pattern.h"
#include "images/image_file.h"
#include "jpeg/decoder.h"
#include "jpeg/pack_yuyv16.h"
#include "pixels/yuyv.h"
#include "support/images.h"
#include "support/resources.h"
#include "support/sanitized.h"

namespace scansteps {
namespace {

using namespace capture;
using namespace images;
using namespace jpeg;
using namespace pixels;

std::vector<std::byte> frameOf(int value, std::size_t size = 16)
{
    return std::vector<std::byte>(size, static_cast<std::byte>(value));
}

class Queue : public testing::Test
{
  protected:
    Queue() { queue.open({4, 2, false}); }

    // take() returns when the next frame arrives: this thread pushes it as soon as the queue is empty.
    std::vector<std::byte> takeWhilePushing(const std::vector<std::byte>& next)
    {
        std::jthread device([&] {
            ASSERT_TRUE(queue.waitUntilTaken());
            queue.push(next);
        });
        const auto frame = queue.take(0);
        return {frame.begin(), frame.end()};
    }

    FrameQueue queue;
};

TEST_F(Queue, deliversTheNewestAndMarksThatTheConsumerFallsBehind)
{
    const std::string marks = printed([&] {
        for (int value = 1; value <= 5; ++value) queue.push(frameOf(value));
    });
    EXPECT_EQ(marks, "iii") << "one for each frame that arrived while two or more were waiting";
    EXPECT_EQ(takeWhilePushing(frameOf(6)), frameOf(5));
    EXPECT_EQ(queue.skippedFrames(), 4U);
    EXPECT_EQ(takeWhilePushing(frameOf(7)), frameOf(6));
}

TEST_F(Queue, firstFrameIsDeliveredWhenTheSecondHasCome)
{
    std::jthread device([&] {
        queue.push(frameOf(1));
        ASSERT_TRUE(queue.waitUntilTaken());
        queue.push(frameOf(2));
    });
    EXPECT_EQ(queue.take(0)[0], std::byte{1});
}

TEST_F(Queue, dropsShortFramesCutsLongOnesRemovesPadding)
{
    queue.push(frameOf(1, 15));
    EXPECT_EQ(queue.shortFrames(), 1U);
    queue.push(frameOf(2, 5000));
    EXPECT_EQ(takeWhilePushing(frameOf(3)), frameOf(2, 32)) << "room for twice a frame";
    (void)takeWhilePushing(frameOf(4));

    std::vector<std::byte> padded = frameOf(9, 10 + 8);  // rows of 8 bytes at a distance of 10
    padded[8] = padded[9] = std::byte{0};
    queue.push(padded, 10);
    EXPECT_EQ(takeWhilePushing(frameOf(5)), frameOf(9));
    padded.pop_back();
    queue.push(padded, 10);
    EXPECT_EQ(queue.shortFrames(), 2U);
}

TEST_F(Queue, waitsEndWithTheTimeOrTheReason)
{
    EXPECT_EQ(thrownText([&] { (void)queue.take(20); }), "capture timeout");
    queue.push(frameOf(1));
    queue.fail("unplugged");
    EXPECT_EQ(queue.take(0)[0], std::byte{1}) << "what has come is delivered first";
    EXPECT_EQ(thrownText([&] { (void)queue.take(0); }), "unplugged");

    queue.push(frameOf(1));
    std::jthread closer([&] { queue.close(); });
    EXPECT_FALSE(queue.waitUntilTaken());
    EXPECT_FALSE(queue.sleepUntil(FrameQueue::Clock::now() + std::chrono::hours(1)));
}

std::vector<Arrived> run(Chain& chain, Struct init)
{
    (void)runCamera(chain, std::move(init));
    return std::move(chain.arrived);
}

TEST(TestDevice, everyFrameInOrderAtFullRate)
{
    Chain chain({"ccap1"});
    const auto arrived = run(chain, cameraSettings("test:moving@max", 321, 100, 30));
    ASSERT_EQ(arrived.size(), 32U) << "initialise, 30 frames, flush";
    EXPECT_EQ(arrived[0].record["dataX"].as<int>(), 320) << "pixels come in pairs: the device's choice wins";
    EXPECT_EQ(arrived[0].record["dataY"].as<int>(), 100);
    EXPECT_EQ(arrived[0].record["dataFormat"].as<std::string>(), "CPU::u_1x16");
    EXPECT_EQ(arrived[0].record["VideoFormat"].as<std::string>(), "YUYV16");
    PatternImage pattern(TestPattern::Moving, 320, 100);
    for (std::uint64_t i = 0; i < 30; ++i) {
        const auto expected = pattern.frame(i);
        EXPECT_TRUE(std::ranges::equal(samplesOf(*arrived[i + 1].frame), expected)) << i;
        EXPECT_GT(arrived[i + 1].record["handle"].as<int>(), 0);
    }
}

TEST(TestDevice, patternsAreWhatTheyAreCalled)
{
    PatternImage bars(TestPattern::Bars, 640, 2);
    const auto frame = bars.frame(0);
    std::vector<std::uint8_t> rgb(640 * 2 * 3);
    yuyvToRgb(frame, rgb, 640, 2);
    const int expected[8][3] = {{191, 191, 191}, {191, 191, 0}, {0, 191, 191}, {0, 191, 0},
                                {191, 0, 191},   {191, 0, 0},   {0, 0, 191},   {0, 0, 0}};
    for (std::size_t bar = 0; bar < 8; ++bar)
        for (std::size_t channel = 0; channel < 3; ++channel)
            EXPECT_NEAR(rgb[(80 * bar + 40) * 3 + channel], expected[bar][channel], 4)
                << bar << " " << channel;

    PatternImage gradient(TestPattern::Gradient, 220, 3);
    const auto row = gradient.frame(7).first(220);
    EXPECT_TRUE(std::ranges::is_sorted(row, {}, [](std::uint16_t sample) { return sample & 255; }));
    EXPECT_EQ(row.front() & 255, 16);
    EXPECT_EQ(row.back() & 255, 235);

    for (const auto& [step, place] : {std::pair{0, 0}, {5, 5}, {7, 3}, {10, 0}})
        EXPECT_EQ(bounce(step, 5), place);
    EXPECT_EQ(bounce(3, 0), 0);
}

TEST(TestDevice, showsNumberedPicturesOverAndOver)
{
    const TempDir folder;
    std::vector<std::vector<std::uint16_t>> pictures;
    for (int i = 0; i < 2; ++i) {
        const std::string path = folder / ("ein bild" + std::to_string(i) + ".ppm");
        std::vector<std::uint8_t> rgb(6 * 4 * 3);
        std::iota(rgb.begin(), rgb.end(), static_cast<std::uint8_t>(100 * i));
        ASSERT_TRUE(writeImage(path, 0, 6, 4, true, rgb));
        pictures.emplace_back(24);
        rgbToYuyv(rgb, pictures.back(), 6, 4);
    }
    Chain chain({"ccap1"});
    const auto arrived = run(chain, cameraSettings("file:" + folder / "ein bild0.ppm" + "@max", 640, 480, 5));
    ASSERT_EQ(arrived.size(), 7U);
    EXPECT_EQ(arrived[0].record["dataX"].as<int>(), 6);
    for (std::size_t i = 0; i < 5; ++i) EXPECT_EQ(samplesOf(*arrived[i + 1].frame), pictures[i % 2]) << i;
}

// The planes of the decoder, packed into samples as frames of a camera are.
std::vector<std::uint16_t> decoded(const std::string& path, int& width, int& height)
{
    const std::string file = readFile(path);
    BaselineJpegDecoder decoder;
    EXPECT_EQ(decoder.parseHeader({reinterpret_cast<const std::uint8_t*>(file.data()), file.size()}), 0);
    decoder.getSize(width, height);
    const auto w = static_cast<std::size_t>(width), h = static_cast<std::size_t>(height);
    std::vector<std::uint8_t> luma(w * h), cb((w + 1) / 2 * ((h + 1) / 2)), cr(cb.size());
    decoder.setComponents({luma, cb, cr});
    EXPECT_EQ(decoder.decode(), 0);
    std::vector<std::uint16_t> samples(w * h);
    packYuyv16(luma, cb, cr, samples, w, h);
    return samples;
}

TEST(TestDevice, motionJpegIsDecodedAndDamageIsPrinted)
{
    const std::string path = examplePath("img0000.jpg");
    int width = 0, height = 0;
    const auto expected = decoded(path, width, height);
    Chain chain({"ccap1"});
    Struct init = cameraSettings("file:" + path + "@max", 1, 1);
    init["capture"].set("jpeg", 1);
    std::string words = printed([&] {
        chain.init(std::move(init));
        chain.process();
    });
    EXPECT_EQ(chain.arrived[0].record["dataX"].as<int>(), width);
    EXPECT_EQ(samplesOf(*chain.arrived[1].frame), expected);
    EXPECT_THAT(words, HasSubstr("              0 result\n"));
    EXPECT_THAT(words, testing::EndsWith(" time_count() - start0\n"));
    (void)printed([&] { chain.flush(); });

    // A frame that cannot be decoded repeats the previous one; a truncated frame shows what was decoded.
    FrameConverter converter;
    converter.open({width, height, true});
    std::vector<std::uint16_t> shown(expected.size());
    std::string damage;
    const auto show = [&](const std::string& file) {
        return printed([&] { damage = converter.convert(std::as_bytes(std::span(file)), shown); });
    };
    const std::string file = readFile(path);
    show(file);
    EXPECT_EQ(shown, expected);
    EXPECT_EQ(damage, "");
    EXPECT_EQ(show("no picture at all"), "Not a JPG file ?\nparse error!\n");
    EXPECT_EQ(damage, "Not a JPG file ?");
    EXPECT_EQ(shown, expected);
    EXPECT_THAT(
        show(file.substr(0, file.size() / 2)),
        testing::StartsWith("Bad huffman data (buffer overflow)\nparse error!\n             -1 result\n"));
    EXPECT_EQ(damage, "Bad huffman data (buffer overflow)");
    converter.open({width, height + 16, true});
    shown.resize(shown.size() + 16 * static_cast<std::size_t>(width));
    EXPECT_THAT(show(file), HasSubstr(" from a camera of "));
    EXPECT_EQ(shown.front(), 0x8080) << "grey before the first picture";
}

TEST(TestDevice, pictureOfAnotherSizeEndsTheFrames)
{
    const TempDir folder;
    const std::vector<std::uint8_t> rgb(6 * 4 * 3);
    ASSERT_TRUE(writeImage(folder / "a0.ppm", 0, 6, 4, true, rgb));
    ASSERT_TRUE(writeImage(folder / "a1.ppm", 0, 4, 6, true, rgb));
    Chain chain({"ccap1"});
    (void)printed([&] {
        chain.init(cameraSettings("file:" + folder / "a0.ppm" + "@max", 1, 1));
        chain.process();
        EXPECT_EQ(thrownText([&] { chain.process(); }),
                  "capture: " + folder / "a1.ppm" + " cannot be shown: it has another size than the first");
        chain.flush();
    });
}

TEST(TestDevice, saysWhatIsWrong)
{
    const std::pair<const char*, const char*> cases[] = {
        {"test:stripes", "capture: no test pattern \"stripes\"; there are bars, gradient, moving"},
        {"test:bars@fast", "capture: rate \"fast\" is neither max nor 0.01 to 100000 frames a second"},
        {"test:bars@0", "capture: rate \"0\" is neither max nor 0.01 to 100000 frames a second"},
        {"test:bars@nan", "capture: rate \"nan\" is neither max nor 0.01 to 100000 frames a second"},
        {"file:nowhere0000.jpg", "capture: nowhere0000.jpg cannot be shown: No such file or directory"},
    };
    for (const auto& [device, text] : cases) {
        Chain chain({"ccap1"});
        std::string thrown;
        (void)printed([&, device = device] {
            thrown = thrownText([&] { chain.init(cameraSettings(device, 64, 64)); });
        });
        EXPECT_EQ(thrown, text) << device;
        EXPECT_EQ(thrownText([&] { chain.process(); }), "CPUCap1: the camera is not open") << device;
    }
}

TEST(CaptureStep, printsAndReports)
{
    Chain chain({"ccap1"});
    EXPECT_EQ(printed([&] { chain.init(cameraSettings("test:bars", 64, 48, 2)); }),
              "init OK!!!!!!!!!!!!!!!!!!!!11\n");
    chain.process();
    EXPECT_GT(chain.step(0).time, 0);
    EXPECT_THAT(printed([&] { chain.flush(); }), testing::StartsWith("flush CPUCap1\n   CPUCap1 time = "));
    EXPECT_EQ(thrownText([&] { chain.process(); }), "CPUCap1: the camera is not open");
    // A second initialise starts a new run and resets the count.
    chain.arrived.clear();
    EXPECT_EQ(run(chain, cameraSettings("test:bars@max", 64, 48, 2)).size(), 4U);
}

TEST(CaptureStep, timeoutIsThrown)
{
    Chain chain({"ccap1"});
    Struct init = cameraSettings("test:bars@0.01", 64, 48);
    init["capture"].set("timeout_ms", 30);
    (void)printed([&] { chain.init(std::move(init)); });
    EXPECT_EQ(thrownText([&] { chain.process(); }), "capture timeout");
}

TEST(CaptureStep, pacedByTheDeviceAndDropsWhatItIsTooSlowFor)
{
    Chain chain({"ccap1"});
    std::string marks;
    (void)printed([&] { chain.init(cameraSettings("test:moving@500", 64, 48)); });
    marks = printed([&] {
        chain.process();
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        chain.process();
    });
    EXPECT_THAT(marks, HasSubstr("i"));
    PatternImage pattern(TestPattern::Moving, 64, 48);
    const auto late = samplesOf(*chain.arrived.back().frame);
    for (std::uint64_t i = 0; i < 5; ++i) {
        const auto early = pattern.frame(i);
        EXPECT_FALSE(std::ranges::equal(late, early)) << "an old frame was delivered";
    }
    (void)printed([&] { chain.flush(); });
}

TEST(CaptureStep, tenThousandStartsAndStopsLeaveNothing)
{
    (void)printed([&] {
        test::expectNothingLeft(
            [] {
                const Capture capture({16, 16, false, "test:bars@max"});
                ASSERT_EQ(capture.format().width, 16);
            },
            1);
    });
}

}  // namespace
}  // namespace scansteps
