// Fuzzes what the viewer's page may say, and the answers to it.
#include "viewer/message_input.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    scansteps::fuzzing::readMessage(data, size);
    return 0;
}
