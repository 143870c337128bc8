// Controls of the fake Video4Linux devices. A test finds them with dlsym("fakeV4l2").
#pragma once

#include <atomic>

namespace scansteps::test {

struct FakeV4l2
{
    std::atomic<int> rate;              ///< frames a second
    std::atomic<int> width;             ///< the only supported width; 0: any
    std::atomic<int> height;            ///< the same
    std::atomic<int> padding;           ///< bytes after each row
    std::atomic<int> jpeg;              ///< offers MJPG, whose frames are the bytes of setJpeg()
    std::atomic<int> otherFormat;       ///< supports only a format that is never requested
    std::atomic<int> interrupt;         ///< every n-th call is interrupted by a signal; 0: none
    std::atomic<int> notYet;            ///< every n-th frame is announced too early; 0: none
    std::atomic<int> damage;            ///< every n-th frame is marked as damaged; 0: none
    std::atomic<int> cut;               ///< every n-th frame is one byte too short; 0: none
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
