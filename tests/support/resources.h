// Resources that the test process holds: threads, descriptors or handles, memory. For tests that repeat
// an operation many times and check for leaks.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <cstddef>
#include <thread>

#include "sanitized.h"

#ifdef _WIN32
#include <windows.h>
// these need windows.h first
#include <psapi.h>
#include <tlhelp32.h>
#else
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#endif

namespace scansteps::test {

struct Resources
{
    std::ptrdiff_t threads = 0;
    std::ptrdiff_t descriptors = 0;
    std::ptrdiff_t memory = 0;  ///< bytes, as the system counts them
};

#ifdef _WIN32

inline Resources resourcesHeld()
{
    Resources held;
    DWORD handles = 0;
    GetProcessHandleCount(GetCurrentProcess(), &handles);
    held.descriptors = handles;
    PROCESS_MEMORY_COUNTERS memory{};
    K32GetProcessMemoryInfo(GetCurrentProcess(), &memory, sizeof memory);
    held.memory = static_cast<std::ptrdiff_t>(memory.PagefileUsage);
    const HANDLE snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0);
    THREADENTRY32 entry{};
    entry.dwSize = sizeof entry;
    for (BOOL more = Thread32First(snapshot, &entry); more; more = Thread32Next(snapshot, &entry))
        if (entry.th32OwnerProcessID == GetCurrentProcessId()) ++held.threads;
    CloseHandle(snapshot);
    return held;
}

#else

inline Resources resourcesHeld()
{
    const auto entries = [](const char* folder) {
        return std::distance(std::filesystem::directory_iterator(folder), {});
    };
    Resources held;
    held.threads = entries("/proc/self/task");
    held.descriptors = entries("/proc/self/fd");
    std::ptrdiff_t size = 0, resident = 0;
    std::ifstream("/proc/self/statm") >> size >> resident;
    held.memory = resident * sysconf(_SC_PAGESIZE);
    return held;
}

#endif

/// The same after joined threads have left the system's list too, which takes a moment.
inline Resources resourcesHeldAtRest()
{
    Resources held = resourcesHeld();
    for (int quiet = 0; quiet < 5;) {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
        const Resources now = resourcesHeld();
        quiet = now.threads == held.threads ? quiet + 1 : 0;
        held = now;
    }
    return held;
}

/// Runs `cycle` ten thousand times: nothing may be left behind, but for `descriptors` that the test itself
/// holds.
template <class Cycle>
void expectNothingLeft(Cycle cycle, std::ptrdiff_t descriptors = 0)
{
    for (int i = 0; i < 200; ++i) cycle();  // creates what is created once
    const Resources before = resourcesHeldAtRest();
    for (int i = 0; i < 10000; ++i) cycle();
    const Resources after = resourcesHeldAtRest();
    EXPECT_EQ(after.threads, before.threads);
    EXPECT_LE(after.descriptors, before.descriptors + descriptors);
#ifndef SCANSTEPS_SANITIZED  // which delays the release of memory, and finds leaks itself
    EXPECT_LT(after.memory - before.memory, 8 << 20) << "less than a kilobyte a cycle";
#endif
}

}  // namespace scansteps::test
