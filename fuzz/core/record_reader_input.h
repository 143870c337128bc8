// What the fuzz target of the record reader does with its input, shared with the test that replays the
// corpus.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "scansteps/stream.h"

namespace scansteps::fuzzing {

[[noreturn]] inline void broken(const char* what)
{
    std::fprintf(stderr, "broken: %s\n", what);
    std::abort();
}

/// Delivers bytes in pieces whose sizes come from a seed, through the buffer that files and sockets use.
class Chunked : public BIO
{
  public:
    Chunked(std::span<const std::byte> bytes, std::uint32_t seed) : bytes_(bytes), state_(seed | 1U) {}
    void write(const void*, std::size_t) override { broken("the reader writes"); }
    void read(void* to, std::size_t length) override
    {
        const auto receive = [this](std::byte* first, std::size_t count, std::byte* second,
                                    std::size_t more) {
            state_ = state_ * 1664525U + 1013904223U;
            const std::size_t part = std::min<std::size_t>(bytes_.size(), 1 + (state_ >> 24U));
            const std::size_t direct = std::min(part, count);
            std::copy_n(bytes_.begin(), direct, first);
            const std::size_t ahead = std::min(part - direct, more);
            std::copy_n(bytes_.begin() + std::ptrdiff_t(direct), ahead, second);
            bytes_ = bytes_.subspan(direct + ahead);
            return static_cast<std::int64_t>(direct + ahead);
        };
        if (ahead_.read(static_cast<std::byte*>(to), length, receive) != length) throw "read error";
    }

  private:
    std::span<const std::byte> bytes_;
    std::uint32_t state_;
    ReadAhead ahead_;
};

/// Reads records until the bytes end or are invalid: the records must not depend on the pieces in which the
/// bytes arrive, and must be unchanged after writing and reading them again.
inline void readRecords(const std::uint8_t* data, std::size_t size)
{
    if (size < 4) return;
    std::uint32_t seed = 0;
    std::memcpy(&seed, data, 4);
    const std::span<const std::byte> bytes(reinterpret_cast<const std::byte*>(data) + 4, size - 4);
    BIOmem whole(bytes);
    Chunked chunked(bytes, seed);
    Array spare(Kind::Uchar, seed % 64, 1);
    for (;;) {
        varitype record, again;
        std::string error, chunkedError;
        try {
            record = readRecord(whole, {UINT64_MAX, 100000});
        } catch (const char* text) {
            error = text;
        }
        try {
            again = readRecord(chunked, {UINT64_MAX, 100000}, &spare);
        } catch (const char* text) {
            chunkedError = text;
        }
        if (error != chunkedError) broken("the error depends on the pieces");
        if (!error.empty()) {
            if (error != "read error" && error != "Read Error") broken(error.c_str());
            return;
        }
        if (!record.equals(again)) broken("the record depends on the pieces");
        BIOmem written;
        writeRecord(written, record);
        if (written.bytes().size() != recordSize(record)) broken("recordSize() is wrong");
        if (!readRecord(written).equals(record)) broken("the record changes when it is written");
        dumpText(record, "");
        copyRecord(record);
    }
}

}  // namespace scansteps::fuzzing
