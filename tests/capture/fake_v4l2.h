// Controls of the fake Video4Linux devices. A test finds them with dlsym("fakeV4l2").
#pragma once

#include <atomic>

namespace scansteps::test {

struct FakeV4l2
{
    std::atomic<int> rate;              ///< frames a second
    std::atomic<int> width;             ///< the only width it has; 0: whatever is asked for
    std::atomic<int> height;            ///< the same
    std::atomic<int> padding;           ///< bytes after each row
    std::atomic<int> jpeg;              ///< it offers MJPG: frames are the bytes set with setJpeg()
    std::atomic<int> otherFormat;       ///< it has nothing but a format that nobody asked for
    std::atomic<int> interrupt;         ///< every so many calls are interrupted by a signal; 0: none
    std::atomic<int> notYet;            ///< every so many frames are announced too early; 0: none
    std::atomic<int> damage;            ///< every so many frames are marked as damaged; 0: none
    std::atomic<int> cut;               ///< every so many frames are one byte too short; 0: none
    std::atomic<int> unplugAfter;       ///< frames until every call fails with ENODEV; 0: never
    std::atomic<int> hangUpAfter;       ///< frames until poll() reports an error; 0: never
    std::atomic<unsigned long> refuse;  ///< this request fails, with `refuseWith`
    std::atomic<int> refuseWith;
    std::atomic<long> frames;     ///< frames delivered since reset()
    std::atomic<long> rateAsked;  ///< frames a second of the last VIDIOC_S_PARM
    std::atomic<int> open;        ///< devices open now

    void (*setJpeg)(const void* bytes, unsigned long size);
    void (*reset)();
};

}  // namespace scansteps::test
