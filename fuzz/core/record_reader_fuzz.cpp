// Fuzzes the record reader with untrusted bytes that arrive in pieces of any size.
#include "core/record_reader_input.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    scansteps::fuzzing::readRecords(data, size);
    return 0;
}
