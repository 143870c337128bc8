// Any chain of steps, with any events: an event ends with or without a thrown text, and at the end every
// buffer has been given back.
#include "plugin/any_chain_input.h"

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    if (std::freopen("/dev/null", "w", stdout) == nullptr) std::abort();  // what the steps print
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static const scansteps::fuzzing::Scratch scratch;
    scansteps::fuzzing::AnyChain(data, size, scratch).run();
    return 0;
}
