// Video4Linux capture against the preloaded stand-in: choice of the device, formats, frames, and everything a
// driver may answer in the wrong moment.
#ifdef __linux__

#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/videodev2.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>

#include "capture/capture.h"
#include "capture/fake_v4l2.h"
#include "scansteps/cameras.h"
#include "support/chain.h"
#include "support/images.h"
#include "support/resources.h"
#include "support/sanitized.h"
#include "support/temp_dir.h"

namespace scansteps {
namespace {

using namespace capture;

using test::Chain;
using test::printed;
using test::thrownText;

// The stand-in answers only when it is loaded before the C library: started without it, the program starts
// itself once more.
[[gnu::constructor]] void startWithStandIn(int, char** arguments)
{
    if (dlsym(RTLD_DEFAULT, "v4l2Shim") != nullptr || getenv("LD_PRELOAD") != nullptr) return;
    std::string first = SCANSTEPS_BIN_DIR "/libfake_v4l2.so";
#ifdef __SANITIZE_THREAD__
    // Its runtime has to be ready before the first call that the stand-in takes.
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
        void* symbol = dlsym(RTLD_DEFAULT, "v4l2Shim");
        ASSERT_NE(symbol, nullptr) << "the stand-in was not loaded";
        test::V4l2Shim* (*find)() = nullptr;
        std::memcpy(&find, &symbol, sizeof find);
        shim = find();
        shim->reset();
    }
    void TearDown() override { EXPECT_EQ(shim->open, 0) << "devices left open"; }

    static Struct settings(const std::string& device, int width = 64, int height = 48, int frames = 0)
    {
        return {{"dataX", width},
                {"dataY", height},
                {"capture", Struct{{"dev_name", device}, {"count_max", frames}}}};
    }
    static std::uint32_t numberOf(const test::Arrived& arrived)
    {
        std::uint32_t number = 0;
        std::memcpy(&number, arrived.frame->data(), sizeof number);
        return number;
    }
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
            chain.init(settings(""));
            for (int i = 0; i < 1000 && thrown.empty(); ++i) thrown = thrownText([&] { chain.process(); });
            chain.flush();
        });
        return thrown;
    }

    test::V4l2Shim* shim = nullptr;
};

TEST_F(Video4Linux, listsCamerasAndTheirModes)
{
    const auto cameras = listCameras();
    ASSERT_EQ(cameras.size(), 2U) << "a node that streams no frames is none";
    EXPECT_EQ(cameras[0].name, "Shim Camera");
    EXPECT_EQ(cameras[0].path, "/dev/video2");
    EXPECT_EQ(cameras[1].path, "/dev/video3");
    shim->jpeg = 1;
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
    for (const char* device : {"", "Second", "/dev/video3", "Shim"}) {
        Chain chain({"ccap1"});
        (void)printed([&] {
            chain.init(settings(device));
            EXPECT_EQ(shim->open, 1) << device;
            chain.flush();
        });
        EXPECT_EQ(shim->open, 0) << "flush closes the camera";
    }
    EXPECT_EQ(initError(settings("Third")),
              "no camera \"Third\"; there are: Shim Camera (/dev/video2), Shim Second Camera (/dev/video3)");
    EXPECT_THAT(initError(settings("/dev/video9")),
                testing::StartsWith("no camera \"/dev/video9\"; there are: "));
}

TEST_F(Video4Linux, theDevicesSizeWinsAndPaddingIsGone)
{
    shim->width = 40;
    shim->height = 30;
    shim->padding = 24;
    Chain chain({"ccap"});
    (void)printed([&] {
        chain.init({{"dataX", 640}, {"dataY", 480}});
        chain.process();
        chain.flush();
    });
    EXPECT_EQ(shim->rateAsked, 60);
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
    shim->jpeg = 1;
    const std::string file = test::readFile(test::examplePath("img0000.jpg"));
    shim->setJpeg(file.data(), file.size());
    const test::Image photo = test::examplePhoto("img0000.jpg");
    Chain chain({"ccap1"});
    const std::string words = printed([&] {
        Struct init = settings("", photo.width, photo.height);
        init["capture"].set("jpeg", 1);
        chain.init(std::move(init));
        chain.process();
        chain.flush();
    });
    EXPECT_THAT(words, testing::HasSubstr("              0 result\n"));
    // Luma of the middle, against another decoder.
    const std::size_t middle =
        static_cast<std::size_t>(photo.height / 2) * static_cast<std::size_t>(photo.width) +
        static_cast<std::size_t>(photo.width / 2);
    EXPECT_NEAR(chain.arrived[1].frame->elements<std::uint16_t>()[middle] & 255, test::greyOf(photo)[middle],
                3);
}

TEST_F(Video4Linux, newestFrameOfARunningCamera)
{
    shim->rate = 500;
    Chain chain({"ccap1"});
    (void)printed([&] {
        chain.init(settings("", 64, 48, 50));
        while (chain.process() != event::kFlush) {
        }
        chain.flush();
    });
    ASSERT_EQ(chain.arrived.size(), 52U);
    for (std::size_t i = 2; i < 51; ++i)
        ASSERT_GT(numberOf(chain.arrived[i]), numberOf(chain.arrived[i - 1])) << "frames go on in time";
}

TEST_F(Video4Linux, interruptionsAndEarlyAnswersAreNoErrors)
{
    shim->interrupt = 3;
    shim->notYet = 4;
    Chain chain({"ccap1"});
    (void)printed([&] {
        chain.init(settings("", 64, 48, 30));
        while (chain.process() != event::kFlush) {
        }
        chain.flush();
    });
    EXPECT_EQ(chain.arrived.size(), 32U);
}

TEST_F(Video4Linux, damagedAndShortFramesAreDroppedAndCounted)
{
    shim->damage = 3;
    shim->cut = 4;
    Chain chain({"ccap1"});
    (void)printed([&] {
        chain.init(settings("", 64, 48, 40));
        while (chain.process() != event::kFlush) {
        }
    });
    const std::string words = printed([&] { chain.flush(); });
    EXPECT_THAT(words, testing::HasSubstr(" frames dropped, too short\n"));
    for (std::size_t i = 1; i <= 40; ++i) {
        const std::uint32_t number = numberOf(chain.arrived[i]);
        EXPECT_NE(number % 3, 2U);
        EXPECT_NE(number % 4, 3U);
    }
}

TEST_F(Video4Linux, unpluggedInTheMiddleIsThrown)
{
    shim->unplugAfter = 10;
    EXPECT_EQ(endOfFrames(), "camera /dev/video2: no more frames (No such device)");
    EXPECT_EQ(shim->frames, 10);
    shim->reset();
    shim->hangUpAfter = 10;
    EXPECT_EQ(endOfFrames(), "camera /dev/video2: no more frames (No such device)");
    shim->reset();
    shim->refuse = VIDIOC_DQBUF;
    shim->refuseWith = EIO;
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
        shim->refuse = request;
        shim->refuseWith = EBUSY;
        EXPECT_EQ(initError(settings("")), text);
        EXPECT_EQ(shim->open, 0);
    }
    shim->refuse = VIDIOC_S_PARM;  // many cameras have one rate only
    Chain chain({"ccap1"});
    (void)printed([&] {
        chain.init(settings(""));
        chain.process();
        chain.flush();
    });
    shim->reset();
    shim->otherFormat = 1;
    EXPECT_EQ(initError(settings("")), "camera /dev/video2: delivers neither YUYV nor MJPG frames");
    shim->refuse = VIDIOC_QUERYCAP;
    EXPECT_EQ(initError(settings("")), "no camera found");
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
