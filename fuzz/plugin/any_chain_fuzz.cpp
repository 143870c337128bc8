// Fuzzes any chain of steps with any events: an event may throw a C string, and at the end every buffer has
// been released.
#include "plugin/any_chain_input.h"

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    if (std::freopen("/dev/null", "w", stdout) == nullptr) std::abort();  // the output of the steps
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static const scansteps::fuzzing::Scratch scratch;
    scansteps::fuzzing::AnyChain(data, size, scratch).run();
    return 0;
}
