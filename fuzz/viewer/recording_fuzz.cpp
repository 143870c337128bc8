// Fuzzes the viewer with recordings in memory.
#include <sys/mman.h>
#include <unistd.h>

#include "viewer/recording_input.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static const int file = memfd_create("recording", 0);
    if (ftruncate(file, 0) != 0 || pwrite(file, data, size, 0) != static_cast<ssize_t>(size)) std::abort();
    scansteps::fuzzing::showRecords("/proc/self/fd/" + std::to_string(file));
    return 0;
}
