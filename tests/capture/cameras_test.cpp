// Capture from the fake cameras of either system: the choice of the device, formats, frames, every failure
// that a driver may report, and shutdown.
#ifdef _WIN32
#include <windows.h>
// vfw.h needs windows.h first
#include <vfw.h>
#else
#include <dlfcn.h>
#include <linux/videodev2.h>
#include <unistd.h>
#endif

#include "capture/camera_runs.h"
#include "capture/capture.h"
#include "capture/fake_camera.h"
#include "scansteps/cameras.h"
#include "support/images.h"
#include "support/resources.h"

namespace scansteps {
namespace {

using namespace capture;

/// A request or message, and what initialising throws when it is refused.
struct Refusal
{
    unsigned long request;
    const char* thrown;
};

#ifdef _WIN32

constexpr const char* kSecondMode = "RGB 160";
constexpr const char* kThere = "Fake Camera, Fake Second Camera";
constexpr Refusal kRefusals[] = {
    {test::FakeCamera::kCreateWindow, "error init capCreateCaptureWindow"},
    {WM_CAP_DRIVER_CONNECT, "error init WM_CAP_DRIVER_CONNECT"},
    {WM_CAP_SET_CALLBACK_VIDEOSTREAM, "Could not set video stream callback"},
    {WM_CAP_GET_VIDEOFORMAT, "bisize Could not set video stream callback"},
    {WM_CAP_GET_SEQUENCE_SETUP, "bisize Could not get WM_CAP_GET_SEQUENCE_SETUP "},
    {WM_CAP_SET_SEQUENCE_SETUP, "bisize Could not get WM_CAP_SET_SEQUENCE_SETUP "},
    {WM_CAP_SEQUENCE_NOFILE, "WM_CAP_SEQUENCE_NOFILE "},
    {WM_CAP_SET_OVERLAY, ""},
    {WM_CAP_SET_PREVIEW, ""},
    {WM_CAP_DRIVER_DISCONNECT, ""},
};
constexpr std::ptrdiff_t kDescriptors = 5;

void* symbolOfFake()
{
    const FARPROC address = GetProcAddress(GetModuleHandleA("avicap32.dll"), "fakeCamera");
    return reinterpret_cast<void*>(address);
}

#else

constexpr const char* kSecondMode = "YUYV 640";
constexpr const char* kThere = "Fake Camera (/dev/video2), Fake Second Camera (/dev/video3)";
constexpr Refusal kRefusals[] = {
    {VIDIOC_S_FMT, "camera /dev/video2: the format is refused (Device or resource busy)"},
    {VIDIOC_REQBUFS, "camera /dev/video2: no buffers (Device or resource busy)"},
    {VIDIOC_QUERYBUF, "camera /dev/video2: no buffer (Device or resource busy)"},
    {VIDIOC_QBUF, "camera /dev/video2: a buffer is refused (Device or resource busy)"},
    {VIDIOC_STREAMON, "camera /dev/video2: does not start (Device or resource busy)"},
    {VIDIOC_QUERYCAP, "no camera found"},
    {VIDIOC_S_PARM, ""},  // many cameras support one rate only
};
constexpr std::ptrdiff_t kDescriptors = 0;

// The fake works only when it is loaded before the C library: started without it, the program restarts
// itself.
[[gnu::constructor]] void startWithFake(int, char** arguments)
{
    if (dlsym(RTLD_DEFAULT, "fakeCamera") != nullptr || getenv("LD_PRELOAD") != nullptr) return;
    std::string first = SCANSTEPS_BIN_DIR "/libfake_v4l2.so";
#ifdef __SANITIZE_THREAD__
    // Its runtime has to be ready before the first call that the fake intercepts.
    Dl_info runtime{};
    if (dladdr(dlsym(RTLD_DEFAULT, "__tsan_init"), &runtime) != 0)
        first = std::string(runtime.dli_fname) + ":" + first;
#endif
    setenv("LD_PRELOAD", first.c_str(), 1);
    setenv("ASAN_OPTIONS", "verify_asan_link_order=0", 1);
    execv("/proc/self/exe", arguments);
}

void* symbolOfFake()
{
    return dlsym(RTLD_DEFAULT, "fakeCamera");
}

#endif

class Cameras : public testing::Test
{
  protected:
    void SetUp() override
    {
        void* symbol = symbolOfFake();
        ASSERT_NE(symbol, nullptr) << "the fake was not loaded";
        test::FakeCamera* (*find)() = nullptr;
        std::memcpy(&find, &symbol, sizeof find);
        fake = find();
        fake->reset();
        fake->refuseWith = EBUSY;
    }
    void TearDown() override { EXPECT_EQ(fake->open, 0) << "devices left open"; }

    /// Initialises, takes frames until something is thrown, and returns the text; "" after `frames` frames.
    std::string thrownWithin(int frames, const std::string& device = "")
    {
        Chain chain({"ccap1"});
        std::string thrown;
        (void)printed([&] {
            thrown = thrownText([&] { chain.init(cameraSettings(device)); });
            for (int i = 0; i < frames && thrown.empty(); ++i) thrown = thrownText([&] { chain.process(); });
            chain.flush();
        });
        return thrown;
    }

    test::FakeCamera* fake = nullptr;
};

TEST_F(Cameras, areListedWithTheirModesAndChosenByName)
{
    const auto cameras = listCameras();
    ASSERT_EQ(cameras.size(), 2U) << "a node that streams no frames is none";
    EXPECT_EQ(cameras[0].name, "Fake Camera");
    EXPECT_EQ(cameras[1].name, "Fake Second Camera");
    const auto modes = cameraModes(cameras[1]);
    EXPECT_EQ(modes.back().format + " " + std::to_string(modes.back().width), kSecondMode);
    for (const char* device : {"", "Second", "Fake"}) EXPECT_EQ(thrownWithin(1, device), "");
    EXPECT_EQ(thrownWithin(0, "Third"), std::string("no camera \"Third\"; there are: ") + kThere);
}

TEST_F(Cameras, theDevicesSizeWinsAndPaddingIsGone)
{
    fake->width = 40;
    fake->height = 30;
    fake->padding = 24;
    Chain chain({"ccap"});
    (void)printed([&] {
        chain.init({{"dataX", 640}, {"dataY", 480}});
        chain.process();
        chain.process();
        chain.flush();
    });
    const varitype& record = chain.arrived.at(0).record;
    EXPECT_EQ(record["dataX"].as<int>(), 40);
    EXPECT_EQ(record["dataY"].as<int>(), 30);
    EXPECT_EQ(record["dataFormat"].as<std::string>(), "CPU::u_1x16");
    EXPECT_EQ(record["VideoFormat"].as<std::string>(), "YUYV16");
    ASSERT_TRUE(chain.arrived.at(1).frame->hasShape(Kind::Ushort, 40, 30));
    EXPECT_GT(numberOf(chain.arrived.at(2)), numberOf(chain.arrived[1]));
#ifndef _WIN32
    EXPECT_EQ(fake->rateAsked, 60);
    const std::uint32_t number = numberOf(chain.arrived[1]);
    for (std::size_t i = 2; i < 40 * 30; ++i)
        ASSERT_EQ(chain.arrived[1].frame->elements<std::uint16_t>()[i], std::uint8_t(i / 40 + number) * 257)
            << i;
#endif
}

// The luma of the middle is that of another decoder.
TEST_F(Cameras, motionJpegFrames)
{
    const std::string file = readFile(examplePath("img0000.jpg"));
    fake->jpeg = &file;
    const Image photo = examplePhoto("img0000.jpg");
    Struct init = cameraSettings("", photo.width, photo.height, 1);
    init["capture"].set("jpeg", 1);
    Chain chain({"ccap1"});
    EXPECT_THAT(runCamera(chain, std::move(init)), HasSubstr("              0 result\n"));
    const auto middle = std::size_t(photo.height / 2 * photo.width + photo.width / 2);
    EXPECT_NEAR(chain.arrived.at(1).frame->elements<std::uint16_t>()[middle] & 255, greyOf(photo)[middle], 3);
}

TEST_F(Cameras, slowConsumerSeesMarksAndTheNewestFrame)
{
    Chain chain({"ccap1"});
    (void)printed([&] { chain.init(cameraSettings("")); });
    const std::string marks = printed([&] {
        chain.process();
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        for (int i = 0; i < 30; ++i) chain.process();
    });
    EXPECT_THAT(marks, HasSubstr("ii"));
    EXPECT_GT(numberOf(chain.arrived.at(2)), numberOf(chain.arrived[1]) + 5);
    for (std::size_t i = 3; i < 32; ++i)
        ASSERT_GT(numberOf(chain.arrived.at(i)), numberOf(chain.arrived[i - 1])) << "frames go on in time";
    (void)printed([&] { chain.flush(); });
}

TEST_F(Cameras, damagedAndShortFramesAreDroppedAndCounted)
{
    fake->damage = 3;
    fake->cut = 4;
    Chain chain({"ccap1"});
    EXPECT_THAT(runCamera(chain, cameraSettings("", 64, 48, 40)), HasSubstr(" frames dropped, too short\n"));
    for (std::size_t i = 1; i <= 40; ++i) {
        EXPECT_FALSE(test::every(4, numberOf(chain.arrived.at(i))));
#ifndef _WIN32
        EXPECT_FALSE(test::every(3, numberOf(chain.arrived[i])));
#endif
    }
}

TEST_F(Cameras, whatTheDriverRefusesIsNamed)
{
    for (const Refusal& refusal : kRefusals) {
        fake->refuse = refusal.request;
        EXPECT_EQ(thrownWithin(1), refusal.thrown);
        EXPECT_EQ(fake->open, 0);
    }
}

TEST_F(Cameras, tenThousandStartsAndStopsLeaveNothing)
{
    (void)printed([this] {
        test::expectNothingLeft(
            [this] {
                const Capture capture({16, 16, false, ""});
                if (fake->takeLog != nullptr) fake->takeLog();
                ASSERT_EQ(capture.format().width, 16);
            },
            kDescriptors);
    });
}

#ifdef _WIN32

TEST_F(Cameras, messagesInTheirOrderAndWhatTheDriverSays)
{
    const std::string file = "no frame is decoded";
    fake->jpeg = &file;
    fake->rate = 1;  // so slow that the consumer keeps up
    fake->takeLog();
    for (const int jpeg : {0, 1}) {
        Chain chain({"ccap1"});
        Struct init = cameraSettings("", 640, 480);
        init["capture"].set("jpeg", jpeg);
        const std::string words = printed([&] { chain.init(std::move(init)); });
        EXPECT_THAT(words, StartsWith("BITMAPINFOHEADER\n             40 bih-> biSize\n"
                                      "            160 bih-> biWidth\n            120 bih-> biHeight\n"));
        // Before and after the request.
        EXPECT_THAT(words, HasSubstr("          66667 cparms->dwRequestMicroSecPerFrame\n"));
        EXPECT_THAT(words, HasSubstr("          16666 cparms->dwRequestMicroSecPerFrame\n"));
        EXPECT_THAT(words, HasSubstr("             10 cparms->wPercentDropForError\n"));
        EXPECT_THAT(words, testing::EndsWith("init OK!!!!!!!!!!!!!!!!!!!!11\n"));
        EXPECT_EQ(fake->takeLog(),
                  "CREATE 0 message-only 0 no title\nDRIVER_CONNECT 0\nSET_OVERLAY 0\nSET_PREVIEW 0\n"
                  "SET_CALLBACK_VIDEOSTREAM set\nGET_VIDEOFORMAT 0\nGET_VIDEOFORMAT 40\n"s +
                      (jpeg != 0 ? "SET_VIDEOFORMAT 640x480 planes 1 bits 24 MJPG image 921600\n"
                                 : "SET_VIDEOFORMAT 640x480 planes 1 bits 16 YUY2 image 614400\n") +
                      "GET_VIDEOFORMAT 40\nGET_SEQUENCE_SETUP 96\n"
                      "SET_SEQUENCE_SETUP interval 16666 yield 1 audio 0 key 0 left 0 right 0\n"
                      "GET_SEQUENCE_SETUP 96\nSEQUENCE_NOFILE 0\n");
        EXPECT_THAT(printed([&] { chain.flush(); }), StartsWith("flush CPUCap1\n"));
        EXPECT_EQ(std::string(fake->takeLog()), "SET_CALLBACK_VIDEOSTREAM none\nDRIVER_DISCONNECT 0\n");
    }
}

TEST_F(Cameras, refusedFormatIsPrintedAndTheDriversOneTaken)
{
    fake->refuse = WM_CAP_SET_VIDEOFORMAT;
    Chain chain({"ccap"});
    const std::string words = printed([&] { chain.init(cameraSettings("", 640, 480)); });
    EXPECT_THAT(words, HasSubstr("Could not set WM_CAP_SET_VIDEOFORMAT \n"));
    EXPECT_EQ(chain.arrived.at(0).record["dataX"].as<int>(), 160);
    EXPECT_EQ(chain.arrived[0].record["dataY"].as<int>(), 120);
    (void)printed([&] { chain.flush(); });
}

TEST_F(Cameras, lateFramesOfTheServiceFindNobody)
{
    fake->late = 1;
    fake->rate = 0;
    for (int i = 0; i < 50; ++i) EXPECT_EQ(thrownWithin(1), "");
    EXPECT_GT(fake->frames, 50);
}

#else

TEST_F(Cameras, modesPathsAndTheNumberOfOpenDevices)
{
    const std::string file = readFile(examplePath("img0000.jpg"));
    fake->jpeg = &file;
    const auto cameras = listCameras();
    ASSERT_EQ(cameras.size(), 2U);
    EXPECT_EQ(cameras[0].path, "/dev/video2");
    const auto modes = cameraModes(cameras[0]);
    ASSERT_EQ(modes.size(), 4U);
    EXPECT_EQ(modes[1].height, 480U);
    EXPECT_EQ(modes[1].rate, 30);
    EXPECT_EQ(modes[3].format, "MJPG");
    fake->jpeg = nullptr;
    Chain chain({"ccap1"});
    (void)printed([&] {
        chain.init(cameraSettings("/dev/video3"));
        EXPECT_EQ(fake->open, 1);
        chain.flush();
    });
    EXPECT_EQ(fake->open, 0) << "flush closes the camera";
    EXPECT_THAT(thrownWithin(0, "/dev/video9"), StartsWith("no camera \"/dev/video9\"; there are: "));
    fake->otherFormat = 1;
    EXPECT_EQ(thrownWithin(0), "camera /dev/video2: delivers neither YUYV nor MJPG frames");
}

TEST_F(Cameras, interruptionsAndEarlyAnswersAreNoErrors)
{
    fake->interrupt = 3;
    fake->notYet = 4;
    EXPECT_EQ(thrownWithin(30), "");
}

TEST_F(Cameras, unpluggedInTheMiddleIsThrown)
{
    fake->unplugAfter = 10;
    EXPECT_EQ(thrownWithin(1000), "camera /dev/video2: no more frames (No such device)");
    EXPECT_EQ(fake->frames, 10);
    fake->reset();
    fake->hangUpAfter = 10;
    EXPECT_EQ(thrownWithin(1000), "camera /dev/video2: no more frames (No such device)");
    fake->reset();
    fake->refuse = VIDIOC_DQBUF;
    fake->refuseWith = EIO;
    EXPECT_EQ(thrownWithin(1000), "camera /dev/video2: no more frames (Input/output error)");
}

#endif

}  // namespace
}  // namespace scansteps
