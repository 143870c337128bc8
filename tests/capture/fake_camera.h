// Controls of the fake cameras "Fake Camera" and "Fake Second Camera". On Linux a preloaded library answers
// for /dev/video*, on Windows an avicap32.dll lies beside the tests; both export fakeCamera(). Bytes 0 to 3
// of a frame are its running number.
#pragma once

#include <atomic>
#include <string>

namespace scansteps::test {

struct FakeCamera
{
    std::atomic<int> rate{1000};           ///< frames a second
    std::atomic<int> width, height;        ///< the only supported size; 0: any
    std::atomic<const std::string*> jpeg;  ///< offers MJPG, whose frames are these bytes; null: only YUYV
    std::atomic<int> cut;                  ///< every n-th frame is one byte too short; 0: none
    std::atomic<unsigned long> refuse;     ///< this request or message fails (kCreateWindow: the window)
    std::atomic<long> frames;              ///< frames delivered since reset()

    // Linux
    std::atomic<int> refuseWith;   ///< the error of `refuse`
    std::atomic<int> padding;      ///< bytes after each row
    std::atomic<int> otherFormat;  ///< supports only a format that is never requested
    std::atomic<int> interrupt;    ///< every n-th call is interrupted by a signal; 0: none
    std::atomic<int> notYet;       ///< every n-th frame is announced too early; 0: none
    std::atomic<int> damage;       ///< every n-th frame is marked as damaged; 0: none
    std::atomic<int> unplugAfter;  ///< frames until every call fails with ENODEV; 0: never
    std::atomic<int> hangUpAfter;  ///< frames until poll() reports an error; 0: never
    std::atomic<int> rateAsked;    ///< frames a second of the last VIDIOC_S_PARM
    std::atomic<int> open;         ///< devices open now

    // Windows
    static constexpr unsigned long kCreateWindow = 1;
    std::atomic<int> late;  ///< keeps calling back until the window is destroyed
    const char* (
        *takeLog)();  ///< the messages since the last call, one per line, with the relevant arguments

    void reset()
    {
        for (std::atomic<int>* value :
             {&width, &height, &cut, &refuseWith, &padding, &otherFormat, &interrupt, &notYet, &damage,
              &unplugAfter, &hangUpAfter, &rateAsked, &late})
            *value = 0;
        rate = 1000;
        jpeg = nullptr;
        refuse = 0;
        frames = 0;
    }
};

/// True for the last of every `count` numbers.
inline bool every(int count, long number)
{
    return count > 0 && number % count == count - 1;
}

}  // namespace scansteps::test
