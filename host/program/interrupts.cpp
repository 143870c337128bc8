// Interrupts are recorded while a run has something to finish, and wake its waits; a second one ends the
// program shortly afterwards.
#include <atomic>
#include <cerrno>
#include <cstdlib>

#include "interrupts.h"
#include "scansteps/host.h"

#ifdef _WIN32
#include <windows.h>
#else
#include <fcntl.h>
#include <sys/time.h>
#include <unistd.h>

#include <csignal>
#include <ctime>
#endif

namespace scansteps::host {

namespace {

std::atomic<int> interruptsSeen = 0;
std::atomic<bool> noted = false;  // else an interrupt ends the program at once
static_assert(std::atomic<int>::is_always_lock_free && std::atomic<bool>::is_always_lock_free);

std::atomic<const std::filesystem::path::value_type*> unfinishedFile = nullptr;

// Time left after the second interrupt.
constexpr int kLastMs = 1500;

}  // namespace

void setUnfinishedFile(const std::filesystem::path::value_type* path)
{
    unfinishedFile = path;
}

void endAtOnce(int code) noexcept
{
    const auto* path = unfinishedFile.load();
#ifdef _WIN32
    if (path != nullptr) DeleteFileW(path);
    TerminateProcess(GetCurrentProcess(), static_cast<UINT>(code));
#else
    if (path != nullptr) ::unlink(path);
#endif
    std::_Exit(code);
}

bool interrupted()
{
    return interruptsSeen != 0;
}

void releaseInterrupts()
{
    noted = false;
}

#ifdef _WIN32

namespace {

HANDLE wake = nullptr;

// On a thread of its own.
BOOL WINAPI onConsoleEvent(DWORD event)
{
    const int before = interruptsSeen++;
    if (before > 0 && noted) Sleep(kLastMs);
    if (before > 0 || !noted) endAtOnce(kInterrupted);
    SetEvent(wake);
    // When the console closes or the user leaves, the system ends the program as soon as this returns.
    if (event != CTRL_C_EVENT && event != CTRL_BREAK_EVENT) Sleep(INFINITE);
    return TRUE;
}

}  // namespace

void catchInterrupts()
{
    if (wake == nullptr) wake = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    noted = true;
    SetConsoleCtrlHandler(onConsoleEvent, TRUE);
}

std::intptr_t interruptWake()
{
    return wake != nullptr ? reinterpret_cast<std::intptr_t>(wake) : -1;
}

#else

namespace {

int wakePipe[2] = {-1, -1};
timespec firstAt = {};

extern "C" void endNow(int)
{
    endAtOnce(kInterrupted);
}

// A program that stops another one may send the same signal to it and to its group.
bool isSameInterrupt()
{
    timespec now = {};
    ::clock_gettime(CLOCK_MONOTONIC, &now);
    const auto passed = (now.tv_sec - firstAt.tv_sec) * 1000000000L + (now.tv_nsec - firstAt.tv_nsec);
    return passed < 20000000;
}

extern "C" void noteInterrupt(int)
{
    const int before = errno;
    if (!noted) endAtOnce(kInterrupted);
    if (interruptsSeen == 0) {
        ::clock_gettime(CLOCK_MONOTONIC, &firstAt);
        interruptsSeen = 1;
        [[maybe_unused]] const auto written = ::write(wakePipe[1], "", 1);
    } else if (interruptsSeen == 1 && !isSameInterrupt()) {
        interruptsSeen = 2;
        const itimerval last = {{}, {kLastMs / 1000, kLastMs % 1000 * 1000}};
        if (::setitimer(ITIMER_REAL, &last, nullptr) != 0) endAtOnce(kInterrupted);
    }
    errno = before;
}

// Without SA_RESTART, so that blocking calls return.
void handle(int signal, void (*handler)(int))
{
    struct sigaction action = {};
    action.sa_handler = handler;
    for (const int other : {SIGHUP, SIGINT, SIGTERM}) sigaddset(&action.sa_mask, other);
    ::sigaction(signal, &action, nullptr);
}

void makeWakePipe()
{
    if (wakePipe[0] >= 0 || ::pipe(wakePipe) != 0) return;
    for (const int end : wakePipe) {
        ::fcntl(end, F_SETFD, FD_CLOEXEC);
        ::fcntl(end, F_SETFL, O_NONBLOCK);
    }
}

}  // namespace

void catchInterrupts()
{
    makeWakePipe();  // without one the waits poll
    noted = true;
    handle(SIGALRM, endNow);
    sigset_t last;
    sigemptyset(&last);
    sigaddset(&last, SIGALRM);
    ::sigprocmask(SIG_UNBLOCK, &last, nullptr);
    for (const int signal : {SIGHUP, SIGINT, SIGTERM}) {
        struct sigaction before = {};
        // What was ignored at the start (nohup, a job in the background) stays ignored.
        if (::sigaction(signal, nullptr, &before) == 0 && before.sa_handler != SIG_IGN)
            handle(signal, noteInterrupt);
    }
}

std::intptr_t interruptWake()
{
    return wakePipe[0];
}

#endif

}  // namespace scansteps::host
