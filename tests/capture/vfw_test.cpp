// Capture on Windows with a fake capture service: the order of the messages,
// printed and thrown texts, frames, and shutdown.
#ifdef _WIN32

#include <windows.h>

#include "capture/camera_runs.h"
#include "capture/capture.h"
#include "capture/fake_avicap32.h"
#include "scansteps/cameras.h"
#include "support/images.h"
#include "support/resources.h"

namespace scansteps {
namespace {

using namespace capture;

class VideoForWindows : public testing::Test
{
  protected:
    VideoForWindows()
    {
        for (const char* name : {"RATE", "SIZE", "JPEG", "REFUSE", "CUT", "LATE"}) set(name, nullptr);
        const HMODULE service = GetModuleHandleA("avicap32.dll");
        load(service, log, "fakeCaptureLog");
        load(service, framesDelivered, "fakeCaptureFrames");
        if (log != nullptr) log();
    }
    void SetUp() override { ASSERT_NE(log, nullptr) << "this is not the fake of avicap32.dll"; }

    template <class Function>
    static void load(HMODULE service, Function& function, const char* name)
    {
        const FARPROC address = GetProcAddress(service, name);
        std::memcpy(&function, &address, sizeof function);
    }
    static void set(const std::string& name, const char* value)
    {
        SetEnvironmentVariableA(("FAKE_CAPTURE_" + name).c_str(), value);
    }
    static Struct settings(int width = 64, int height = 48, Struct capture = {})
    {
        return {{"dataX", width}, {"dataY", height}, {"capture", std::move(capture)}};
    }

    test::FakeCaptureLog log = nullptr;
    test::FakeCaptureFrames framesDelivered = nullptr;
};

const char* const kSetUp =
    "CREATE 0 message-only 0 no title\n"
    "DRIVER_CONNECT 0\n"
    "SET_OVERLAY 0\n"
    "SET_PREVIEW 0\n"
    "SET_CALLBACK_VIDEOSTREAM set\n"
    "GET_VIDEOFORMAT 0\n"
    "GET_VIDEOFORMAT 40\n";
const char* const kStream =
    "GET_VIDEOFORMAT 40\n"
    "GET_SEQUENCE_SETUP 96\n"
    "SET_SEQUENCE_SETUP interval 16666 yield 1 audio 0 key 0 left 0 right 0\n"
    "GET_SEQUENCE_SETUP 96\n"
    "SEQUENCE_NOFILE 0\n";

TEST_F(VideoForWindows, messagesInTheirOrder)
{
    set("RATE", "1");  // so slow that the consumer keeps up
    for (const int jpeg : {0, 1}) {
        Chain chain({"ccap1"});
        (void)printed([&] { chain.init(settings(640, 480, {{"jpeg", jpeg}})); });
        EXPECT_EQ(log(), std::string(kSetUp) +
                             (jpeg != 0 ? "SET_VIDEOFORMAT 640x480 planes 1 bits 24 MJPG image 921600\n"
                                        : "SET_VIDEOFORMAT 640x480 planes 1 bits 16 YUY2 image 614400\n") +
                             kStream);
        EXPECT_THAT(printed([&] { chain.flush(); }), testing::StartsWith("flush CPUCap1\n"));
        EXPECT_EQ(std::string(log()), "SET_CALLBACK_VIDEOSTREAM none\nDRIVER_DISCONNECT 0\n");
    }
}

TEST_F(VideoForWindows, printsWhatTheDriverSays)
{
    set("RATE", "1");  // so slow that the consumer keeps up
    Chain chain({"ccap1"});
    const std::string words = printed([&] { chain.init(settings()); });
    EXPECT_THAT(words,
                testing::StartsWith("BITMAPINFOHEADER\n             40 bih-> biSize\n"
                                    "            160 bih-> biWidth\n            120 bih-> biHeight\n"));
    // Before and after the request.
    EXPECT_THAT(words, HasSubstr("          66667 cparms->dwRequestMicroSecPerFrame\n"));
    EXPECT_THAT(words, HasSubstr("          16666 cparms->dwRequestMicroSecPerFrame\n"));
    EXPECT_THAT(words, HasSubstr("             10 cparms->wPercentDropForError\n"));
    EXPECT_THAT(words, testing::EndsWith("init OK!!!!!!!!!!!!!!!!!!!!11\n"));
    (void)printed([&] { chain.flush(); });
}

TEST_F(VideoForWindows, whatTheServiceRefusesIsThrown)
{
    const std::pair<const char*, const char*> cases[] = {
        {"CREATE", "error init capCreateCaptureWindow"},
        {"DRIVER_CONNECT", "error init WM_CAP_DRIVER_CONNECT"},
        {"SET_CALLBACK_VIDEOSTREAM", "Could not set video stream callback"},
        {"GET_VIDEOFORMAT", "bisize Could not set video stream callback"},
        {"GET_SEQUENCE_SETUP", "bisize Could not get WM_CAP_GET_SEQUENCE_SETUP "},
        {"SET_SEQUENCE_SETUP", "bisize Could not get WM_CAP_SET_SEQUENCE_SETUP "},
        {"SEQUENCE_NOFILE", "WM_CAP_SEQUENCE_NOFILE "},
    };
    for (const auto& [message, text] : cases) {
        set("REFUSE", message);
        Chain chain({"ccap1"});
        std::string thrown;
        (void)printed([&] { thrown = thrownText([&] { chain.init(settings()); }); });
        EXPECT_EQ(thrown, text) << message;
    }
    // Refusing overlay or preview is no error.
    set("REFUSE", "SET_OVERLAY SET_PREVIEW DRIVER_DISCONNECT");
    Chain chain({"ccap1"});
    (void)printed([&] {
        chain.init(settings());
        chain.process();
        chain.flush();
    });
}

TEST_F(VideoForWindows, refusedFormatIsPrintedAndTheDriversOneTaken)
{
    set("REFUSE", "SET_VIDEOFORMAT");
    Chain chain({"ccap"});
    const std::string words = printed([&] { chain.init(settings(640, 480)); });
    EXPECT_THAT(words, HasSubstr("Could not set WM_CAP_SET_VIDEOFORMAT \n"));
    EXPECT_EQ(chain.arrived[0].record["dataX"].as<int>(), 160);
    EXPECT_EQ(chain.arrived[0].record["dataY"].as<int>(), 120);
    (void)printed([&] { chain.flush(); });
}

TEST_F(VideoForWindows, theDriversSizeWins)
{
    set("SIZE", "40x30");
    Chain chain({"ccap"});
    (void)printed([&] {
        chain.init(settings(640, 480));
        chain.process();
        chain.process();
        chain.flush();
    });
    EXPECT_EQ(chain.arrived[0].record["dataX"].as<int>(), 40);
    EXPECT_EQ(chain.arrived[0].record["dataY"].as<int>(), 30);
    EXPECT_EQ(chain.arrived[0].record["dataFormat"].as<std::string>(), "CPU::u_1x16");
    EXPECT_EQ(chain.arrived[0].record["VideoFormat"].as<std::string>(), "YUYV16");
    EXPECT_TRUE(chain.arrived[1].frame->hasShape(Kind::Ushort, 40, 30));
    EXPECT_GT(numberOf(chain.arrived[2]), numberOf(chain.arrived[1]));
}

TEST_F(VideoForWindows, motionJpegFrames)
{
    set("JPEG", examplePath("img0000.jpg").c_str());
    expectMotionJpeg();
}

TEST_F(VideoForWindows, slowConsumerSeesMarksAndTheNewestFrame)
{
    Chain chain({"ccap1"});
    (void)printed([&] { chain.init(settings()); });
    const std::string marks = printed([&] {
        chain.process();
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        chain.process();
    });
    EXPECT_THAT(marks, HasSubstr("ii"));
    EXPECT_GT(numberOf(chain.arrived[2]), numberOf(chain.arrived[1]) + 5);
    (void)printed([&] { chain.flush(); });
}

TEST_F(VideoForWindows, shortFramesAreDroppedAndCounted)
{
    set("CUT", "2");
    Chain chain({"ccap1"});
    (void)printed([&] {
        chain.init(settings(64, 48, {{"count_max", 20}}));
        while (chain.process() != event::kFlush) {
        }
    });
    EXPECT_THAT(printed([&] { chain.flush(); }), HasSubstr(" frames dropped, too short\n"));
    for (std::size_t i = 1; i <= 20; ++i) EXPECT_EQ(numberOf(chain.arrived[i]) % 2, 1U);
}

TEST_F(VideoForWindows, choosesTheDriverByName)
{
    const auto cameras = listCameras();
    ASSERT_EQ(cameras.size(), 2U);
    EXPECT_EQ(cameras[1].name, "Fake Second Camera");
    const auto modes = cameraModes(cameras[1]);
    ASSERT_EQ(modes.size(), 1U);
    EXPECT_EQ(modes[0].format, "RGB");
    EXPECT_EQ(modes[0].width, 160U);
    log();

    Chain chain({"ccap1"});
    (void)printed([&] {
        chain.init(settings(64, 48, {{"dev_name", "Second"}}));
        chain.flush();
    });
    EXPECT_THAT(log(), HasSubstr("DRIVER_CONNECT 1\n"));
    EXPECT_EQ(thrownText([&] {
                  chain.init(settings(64, 48, {{"dev_name", "Third"}}));
              }),
              "no camera \"Third\"; there are: Fake Camera, Fake Second Camera");
}

TEST_F(VideoForWindows, lateFramesOfTheServiceFindNobody)
{
    set("LATE", "1");
    set("RATE", "0");
    for (int i = 0; i < 50; ++i) {
        Chain chain({"ccap1"});
        (void)printed([&] {
            chain.init(settings(16, 16));
            chain.process();
            chain.flush();
        });
    }
    EXPECT_GT(framesDelivered(), 50);
}

TEST_F(VideoForWindows, tenThousandStartsAndStopsLeaveNothing)
{
    (void)printed([this] {
        test::expectNothingLeft(
            [this] {
                const Capture capture({16, 16, false, ""});
                log();
                ASSERT_EQ(capture.format().width, 16);
            },
            5);
    });
}

}  // namespace
}  // namespace scansteps

#endif
