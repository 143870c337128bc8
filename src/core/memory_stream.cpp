// Byte stream in memory.
#include <cstring>

#include "scansteps/error.h"
#include "scansteps/stream.h"

namespace scansteps {

void BIOmem::write(const void* bytes, std::size_t length)
{
    const auto* begin = static_cast<const std::byte*>(bytes);
    bytes_.insert(bytes_.end(), begin, begin + length);
}

void BIOmem::read(void* bytes, std::size_t length)
{
    if (length > bytes_.size() - at_) {
        at_ = bytes_.size();
        fail("read error");
    }
    if (length != 0) std::memcpy(bytes, bytes_.data() + at_, length);
    at_ += length;
}

}  // namespace scansteps
