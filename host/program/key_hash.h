// A short text that tells whether something is still the same. Not for keeping attackers out.
#pragma once

#include <fmt/format.h>

#include <cstdint>
#include <string>
#include <string_view>

namespace scansteps::host {

/// FNV-1a, 64 bits.
class KeyHash
{
  public:
    /// Texts are delimited: "ab" and "c" give another hash than "a" and "bc".
    void add(std::string_view text)
    {
        for (const char c : text) addByte(static_cast<std::uint8_t>(c));
        addByte(0xFF);  // not a byte of UTF-8
    }
    std::string text() const { return fmt::format("{:016x}", hash_); }

  private:
    void addByte(std::uint8_t byte) { hash_ = (hash_ ^ byte) * 0x100000001B3; }
    std::uint64_t hash_ = 0xCBF29CE484222325;
};

}  // namespace scansteps::host
