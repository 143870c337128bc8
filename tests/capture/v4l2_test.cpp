// Video4Linux capture with fake devices: choice of the device, formats, frames, and every
// failure that a driver may report.
#ifdef __linux__

#include <dlfcn.h>
#include <linux/videodev2.h>
#include <unistd.h>

#include "capture/camera_runs.h"
#include "capture/capture.h"
#include "capture/fake_v4l2.h"
#include "scansteps/cameras.h"
#include "support/images.h"
#include "support/resources.h"
#include "support/sanitized.h"

namespace scansteps {
namespace {

using namespace capture;

// The fake works only when it is loaded before the C library: started without it, the program restarts
// itself.
[[gnu::constructor]] void startWithFake(int, char** arguments)
{
    if (dlsym(RTLD_DEFAULT, "fakeV4l2") != nullptr || getenv("LD_PRELOAD") != nullptr) return;
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

class Video4Linux : public testing::Test
{
  protected:
    void SetUp() override
    {
        void* symbol = dlsym(RTLD_DEFAULT, "fakeV4l2");
        ASSERT_NE(symbol, nullptr) << "the fake was not loaded";
        test::FakeV4l2* (*find)() = nullptr;
        std::memcpy(&find, &symbol, sizeof find);
        fake = find();
        fake->reset();
    }
    void TearDown() override { EXPECT_EQ(fake->open, 0) << "devices left open"; }

    /// What initialising throws.
    std::string initError(Struct init)
    {
        Chain chain({"ccap1"});
        return thrownText([&] { chain.init(std::move(init)); });
    }
    /// Initialises, takes frames until something is thrown, and returns the text.
    std::string endOfFrames()
    {
        Chain chain({"ccap1"});
        std::string thrown;
        (void)printed([&] {
            chain.init(cameraSettings(""));
            for (int i = 0; i < 1000 && thrown.empty(); ++i) thrown = thrownText([&] { chain.process(); });
            chain.flush();
        });
        return thrown;
    }

    test::FakeV4l2* fake = nullptr;
};

TEST_F(Video4Linux, listsCamerasAndTheirModes)
{
    const auto cameras = listCameras();
    ASSERT_EQ(cameras.size(), 2U) << "a node that streams no frames is none";
    EXPECT_EQ(cameras[0].name, "Fake Camera");
    EXPECT_EQ(cameras[0].path, "/dev/video2");
    EXPECT_EQ(cameras[1].path, "/dev/video3");
    fake->jpeg = 1;
    const auto modes = cameraModes(cameras[0]);
    ASSERT_EQ(modes.size(), 4U);
    EXPECT_EQ(modes[1].format, "YUYV");
    EXPECT_EQ(modes[1].width, 640U);
    EXPECT_EQ(modes[1].height, 480U);
    EXPECT_EQ(modes[1].rate, 30);
    EXPECT_EQ(modes[3].format, "MJPG");
}

TEST_F(Video4Linux, choosesTheDevice)
{
    for (const char* device : {"", "Second", "/dev/video3", "Fake"}) {
        Chain chain({"ccap1"});
        (void)printed([&] {
            chain.init(cameraSettings(device));
            EXPECT_EQ(fake->open, 1) << device;
            chain.flush();
        });
        EXPECT_EQ(fake->open, 0) << "flush closes the camera";
    }
    EXPECT_EQ(initError(cameraSettings("Third")),
              "no camera \"Third\"; there are: Fake Camera (/dev/video2), Fake Second Camera (/dev/video3)");
    EXPECT_THAT(initError(cameraSettings("/dev/video9")),
                testing::StartsWith("no camera \"/dev/video9\"; there are: "));
}

TEST_F(Video4Linux, theDevicesSizeWinsAndPaddingIsGone)
{
    fake->width = 40;
    fake->height = 30;
    fake->padding = 24;
    Chain chain({"ccap"});
    (void)printed([&] {
        chain.init({{"dataX", 640}, {"dataY", 480}});
        chain.process();
        chain.flush();
    });
    EXPECT_EQ(fake->rateAsked, 60);
    ASSERT_EQ(chain.arrived.size(), 3U);
    EXPECT_EQ(chain.arrived[0].record["dataX"].as<int>(), 40);
    EXPECT_EQ(chain.arrived[0].record["dataY"].as<int>(), 30);
    const Array& frame = *chain.arrived[1].frame;
    ASSERT_TRUE(frame.hasShape(Kind::Ushort, 40, 30));
    const std::uint32_t number = numberOf(chain.arrived[1]);
    for (std::size_t i = 2; i < 40 * 30; ++i) {
        const auto expected = static_cast<std::uint8_t>(i / 40 + number);
        ASSERT_EQ(frame.elements<std::uint16_t>()[i], expected * 257) << i;
    }
}

TEST_F(Video4Linux, motionJpegFrames)
{
    fake->jpeg = 1;
    const std::string file = readFile(examplePath("img0000.jpg"));
    fake->setJpeg(file.data(), file.size());
    expectMotionJpeg();
}

TEST_F(Video4Linux, newestFrameOfARunningCamera)
{
    fake->rate = 500;
    Chain chain({"ccap1"});
    (void)runCamera(chain, cameraSettings("", 64, 48, 50));
    ASSERT_EQ(chain.arrived.size(), 52U);
    for (std::size_t i = 2; i < 51; ++i)
        ASSERT_GT(numberOf(chain.arrived[i]), numberOf(chain.arrived[i - 1])) << "frames go on in time";
}

TEST_F(Video4Linux, interruptionsAndEarlyAnswersAreNoErrors)
{
    fake->interrupt = 3;
    fake->notYet = 4;
    Chain chain({"ccap1"});
    (void)runCamera(chain, cameraSettings("", 64, 48, 30));
    EXPECT_EQ(chain.arrived.size(), 32U);
}

TEST_F(Video4Linux, damagedAndShortFramesAreDroppedAndCounted)
{
    fake->damage = 3;
    fake->cut = 4;
    Chain chain({"ccap1"});
    EXPECT_THAT(runCamera(chain, cameraSettings("", 64, 48, 40)),
                testing::HasSubstr(" frames dropped, too short\n"));
    for (std::size_t i = 1; i <= 40; ++i) {
        const std::uint32_t number = numberOf(chain.arrived[i]);
        EXPECT_NE(number % 3, 2U);
        EXPECT_NE(number % 4, 3U);
    }
}

TEST_F(Video4Linux, unpluggedInTheMiddleIsThrown)
{
    fake->unplugAfter = 10;
    EXPECT_EQ(endOfFrames(), "camera /dev/video2: no more frames (No such device)");
    EXPECT_EQ(fake->frames, 10);
    fake->reset();
    fake->hangUpAfter = 10;
    EXPECT_EQ(endOfFrames(), "camera /dev/video2: no more frames (No such device)");
    fake->reset();
    fake->refuse = VIDIOC_DQBUF;
    fake->refuseWith = EIO;
    EXPECT_EQ(endOfFrames(), "camera /dev/video2: no more frames (Input/output error)");
}

TEST_F(Video4Linux, whatTheDriverRefusesIsNamed)
{
    const std::pair<unsigned long, const char*> cases[] = {
        {VIDIOC_S_FMT, "camera /dev/video2: the format is refused (Device or resource busy)"},
        {VIDIOC_REQBUFS, "camera /dev/video2: no buffers (Device or resource busy)"},
        {VIDIOC_QUERYBUF, "camera /dev/video2: no buffer (Device or resource busy)"},
        {VIDIOC_QBUF, "camera /dev/video2: a buffer is refused (Device or resource busy)"},
        {VIDIOC_STREAMON, "camera /dev/video2: does not start (Device or resource busy)"},
    };
    for (const auto& [request, text] : cases) {
        fake->refuse = request;
        fake->refuseWith = EBUSY;
        EXPECT_EQ(initError(cameraSettings("")), text);
        EXPECT_EQ(fake->open, 0);
    }
    fake->refuse = VIDIOC_S_PARM;  // many cameras support one rate only
    Chain chain({"ccap1"});
    (void)printed([&] {
        chain.init(cameraSettings(""));
        chain.process();
        chain.flush();
    });
    fake->reset();
    fake->otherFormat = 1;
    EXPECT_EQ(initError(cameraSettings("")), "camera /dev/video2: delivers neither YUYV nor MJPG frames");
    fake->refuse = VIDIOC_QUERYCAP;
    EXPECT_EQ(initError(cameraSettings("")), "no camera found");
}

TEST_F(Video4Linux, tenThousandStartsAndStopsLeaveNothing)
{
    (void)printed([&] {
        test::expectNothingLeft([] {
            const Capture capture({16, 16, false, "/dev/video2"});
            ASSERT_EQ(capture.format().width, 16);
        });
    });
}

}  // namespace
}  // namespace scansteps

#endif
