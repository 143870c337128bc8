// Constants of the byte form of records, shared by reader and writer.
#pragma once

#include <cstdint>

namespace scansteps::byteform {

/// Bytes of a struct's header: its size in bytes (64 bit), its kind and its number of entries (32 bit each).
inline constexpr std::uint64_t kHeaderSize = 16;
/// Bytes of the smallest entry of a struct: an empty key and the kind.
inline constexpr std::uint64_t kMinEntrySize = 9;
/// The length of a string, terminating zero included, is stored plus this.
inline constexpr std::uint32_t kLengthOffset = 99;
/// Byte i of a string is stored minus this and minus i.
inline constexpr unsigned kCharOffset = 10;

}  // namespace scansteps::byteform
