// Waiting with poll() on POSIX systems and with select() or events on Windows.
#include "core/waits.h"

#include <algorithm>
#include <cerrno>
#include <chrono>

#include "scansteps/host_services.h"

#ifdef _WIN32
#include <winsock2.h>
#else
#include <poll.h>
#endif

namespace scansteps::waits {

namespace {

enum class For
{
    Nothing,
    Reading,
    Writing
};

enum class Seen
{
    Nothing,
    File,
    Wake
};

#ifdef _WIN32

Seen waitOnce(std::intptr_t file, For what, std::intptr_t wake, int milliseconds)
{
    if (what == For::Nothing) {
        if (wake == -1) {
            Sleep(static_cast<DWORD>(milliseconds));
            return Seen::Nothing;
        }
        const DWORD result =
            WaitForSingleObject(reinterpret_cast<HANDLE>(wake), static_cast<DWORD>(milliseconds));
        return result == WAIT_OBJECT_0 ? Seen::Wake : Seen::Nothing;
    }
    fd_set transfer, failed;  // a failed connection attempt is reported as an exception
    FD_ZERO(&transfer);
    FD_ZERO(&failed);
    FD_SET(static_cast<SOCKET>(file), &transfer);
    FD_SET(static_cast<SOCKET>(file), &failed);
    timeval limit{milliseconds / 1000, milliseconds % 1000 * 1000};
    const bool reading = what == For::Reading;
    const int found =
        ::select(0, reading ? &transfer : nullptr, reading ? nullptr : &transfer, &failed, &limit);
    return found != 0 ? Seen::File : Seen::Nothing;
}

constexpr bool kWakesFiles = false;  // select() supports sockets only

#else

Seen waitOnce(std::intptr_t file, For what, std::intptr_t wake, int milliseconds)
{
    const short events = what == For::Writing ? POLLOUT : POLLIN;
    // poll() ignores negative descriptors.
    pollfd waits[2] = {{static_cast<int>(file), events, 0}, {static_cast<int>(wake), POLLIN, 0}};
    const int found = ::poll(waits, 2, milliseconds);
    // If waiting fails, the transfer that follows reports the error.
    if (found < 0) return errno == EINTR ? Seen::Nothing : Seen::File;
    if (waits[0].revents != 0) return Seen::File;
    return waits[1].revents != 0 ? Seen::Wake : Seen::Nothing;
}

constexpr bool kWakesFiles = true;

#endif

Wait wait(std::intptr_t file, For what, int milliseconds, int afterInterrupt)
{
    using Clock = std::chrono::steady_clock;
    const std::intptr_t wake = hostWake();
    const bool sliced = wake == -1 || (what != For::Nothing && !kWakesFiles);
    auto start = Clock::now();
    int limit = milliseconds;
    for (bool interrupted = false;;) {
        if (!interrupted && hostInterrupted()) {
            interrupted = true;
            start = Clock::now();
            limit = limit < 0 ? afterInterrupt : std::min(limit, afterInterrupt);
        }
        const auto passed =
            std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count();
        const int left = limit < 0 ? kForever : static_cast<int>(std::max<std::int64_t>(limit - passed, 0));
        const int once = sliced && (left < 0 || left > kSliceMs) ? kSliceMs : left;
        const Seen seen = waitOnce(file, what, interrupted ? -1 : wake, once);
        if (seen == Seen::File) return Wait::Ready;
        if (left == 0) return interrupted ? Wait::Interrupted : Wait::TimedOut;
        // hostInterrupted() may become true slightly after the wake-up.
        if (seen == Seen::Wake && !hostInterrupted()) (void)waitOnce(-1, For::Nothing, -1, 1);
    }
}

}  // namespace

Wait readable(std::intptr_t file, int milliseconds)
{
    return wait(file, For::Reading, milliseconds, 0);
}

Wait writable(std::intptr_t file, int milliseconds, int afterInterrupt)
{
    return wait(file, For::Writing, milliseconds, afterInterrupt);
}

Wait pause(int milliseconds)
{
    return wait(-1, For::Nothing, milliseconds, 0);
}

}  // namespace scansteps::waits
