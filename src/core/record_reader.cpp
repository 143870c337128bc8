// Decodes records from untrusted input. The size field of a record is a budget to which every part is
// charged, and memory is allocated only as bytes arrive.
#include <algorithm>
#include <array>
#include <cstring>
#include <utility>

#include "core/array_storage.h"
#include "core/byte_form.h"
#include "scansteps/error.h"
#include "scansteps/stream.h"

namespace scansteps {

namespace {

using namespace byteform;

constexpr std::uint64_t kGrowth = 4U << 20;  // arrays grow by at least this many bytes

[[noreturn]] void failRead()
{
    fail("Read Error");
}

// Buffered input. Does not read past the end of the record: the bytes after it are left to the next reader.
class Source
{
  public:
    Source(BIO& bio, std::uint64_t unread) : bio_(bio), unread_(unread) {}

    void take(void* to, std::size_t length)
    {
        auto* out = static_cast<std::byte*>(to);
        const std::size_t buffered = std::min(length, end_ - begin_);
        if (buffered != 0) std::memcpy(out, buffer_.data() + begin_, buffered);
        begin_ += buffered;
        if (buffered == length) return;
        const std::size_t rest = length - buffered;
        if (rest > unread_) failRead();
        if (rest >= buffer_.size()) {
            bio_.read(out + buffered, rest);
            unread_ -= rest;
            return;
        }
        end_ = static_cast<std::size_t>(std::min<std::uint64_t>(unread_, buffer_.size()));
        bio_.read(buffer_.data(), end_);
        unread_ -= end_;
        std::memcpy(out + buffered, buffer_.data(), rest);
        begin_ = rest;
    }

  private:
    BIO& bio_;
    std::uint64_t unread_;
    std::array<std::byte, 4096> buffer_;
    std::size_t begin_ = 0, end_ = 0;
};

// What remains of a record, in bytes or in values. Parts are charged before they are read.
class Budget
{
  public:
    explicit Budget(std::uint64_t bytes) : left_(bytes) {}
    void charge(std::uint64_t bytes)
    {
        if (bytes > left_) failRead();
        left_ -= bytes;
    }
    std::uint64_t left() const { return left_; }

  private:
    std::uint64_t left_;
};

struct Header
{
    std::uint64_t size;
    std::uint32_t kind;
    std::uint32_t count;
};

Header parseHeader(const std::byte (&bytes)[kHeaderSize])
{
    Header header{};
    std::memcpy(&header.size, bytes, 8);
    std::memcpy(&header.kind, bytes + 8, 4);
    std::memcpy(&header.count, bytes + 12, 4);
    if (header.kind != std::uint32_t(Kind::Struct) || header.size < kHeaderSize) failRead();
    return header;
}

class Decoder
{
  public:
    Decoder(Source& source, std::uint64_t maxValues, Array* spare)
        : source_(source), values_(maxValues), spare_(spare)
    {
    }

    Struct readStruct(const Header& header, int depth)
    {
        if (depth > kMaxNesting) failRead();
        Budget budget(header.size - kHeaderSize);
        if (header.count > budget.left() / kMinEntrySize) failRead();
        values_.charge(header.count);

        std::vector<std::pair<std::string, Kind>> directory;
        for (std::uint32_t i = 0; i < header.count; ++i) {
            std::string name = readString(budget);
            const auto kind = read<std::uint32_t>(budget);
            if (kind >= kKindCount) failRead();
            directory.emplace_back(std::move(name), Kind(kind));
        }
        Struct result;
        result.reserve(directory.size());
        // Ascending keys are appended. Keys in another order, from other writers, are collected and sorted
        // once, so that no order of keys takes quadratic time.
        std::vector<std::pair<std::string, varitype>> unordered;
        const bool ordered = std::is_sorted(directory.begin(), directory.end(),
                                            [](const auto& a, const auto& b) { return a.first < b.first; });
        for (auto& [name, kind] : directory) {
            varitype value = readValue(kind, budget, depth);
            if (ordered)
                insertOnce(result, name, std::move(value));
            else
                unordered.emplace_back(std::move(name), std::move(value));
        }
        std::sort(unordered.begin(), unordered.end(),
                  [](const auto& a, const auto& b) { return a.first < b.first; });
        for (auto& [name, value] : unordered) insertOnce(result, name, std::move(value));
        if (budget.left() != 0) failRead();
        return result;
    }

  private:
    static void insertOnce(Struct& result, const std::string& name, varitype value)
    {
        if (!result.empty() && std::prev(result.end())->name == name) failRead();
        result.insert(name, std::move(value));
    }

    template <class T>
    T read(Budget& budget)
    {
        budget.charge(sizeof(T));
        T value;
        source_.take(&value, sizeof value);
        return value;
    }

    std::string readString(Budget& budget)
    {
        const auto field = read<std::uint32_t>(budget);
        if (field <= kLengthOffset) failRead();
        const std::uint32_t length = field - kLengthOffset;
        budget.charge(length);
        std::string text;
        if (length <= kGrowth) {
            text.resize(length);
            source_.take(text.data(), length);
        } else {  // a std::string would allocate ahead of the bytes that arrive
            text.assign(reinterpret_cast<const char*>(takeGrowing(length).get()), length);
        }
        for (std::size_t i = 0; i < length; ++i)
            text[i] = static_cast<char>(static_cast<unsigned char>(text[i]) + kCharOffset + i);
        if (text.back() != '\0') failRead();
        text.pop_back();
        return text;
    }

    varitype readValue(Kind kind, Budget& budget, int depth)
    {
        switch (kind) {
            case Kind::Empty:
                return {};
            case Kind::Char:
                return read<std::int8_t>(budget);
            case Kind::Uchar:
                return read<std::uint8_t>(budget);
            case Kind::Short:
                return read<std::int16_t>(budget);
            case Kind::Ushort:
                return read<std::uint16_t>(budget);
            case Kind::Int:
                return read<std::int32_t>(budget);
            case Kind::Uint:
                return read<std::uint32_t>(budget);
            case Kind::Half:
                return read<Half>(budget);
            case Kind::Float:
                return read<float>(budget);
            case Kind::Double:
                return read<double>(budget);
            case Kind::String:
                return readString(budget);
            case Kind::Struct:
                return readNested(budget, depth);
            case Kind::Array:
                return readArray(budget);
            case Kind::StructArray:
                return readStructArray(budget, depth);
        }
        failRead();
    }

    Struct readNested(Budget& budget, int depth)
    {
        budget.charge(kHeaderSize);
        std::byte bytes[kHeaderSize];
        source_.take(bytes, sizeof bytes);
        const Header header = parseHeader(bytes);
        budget.charge(header.size - kHeaderSize);
        return readStruct(header, depth + 1);
    }

    Array readArray(Budget& budget)
    {
        std::uint32_t fields[5];
        budget.charge(sizeof fields);
        source_.take(fields, sizeof fields);
        if (fields[0] != std::uint32_t(Kind::Array) || fields[4] >= kKindCount) failRead();
        const std::uint64_t left = budget.left();
        // The product must fit into the rest of the record; checked before the array is created.
        std::uint64_t bytes = elementSize(Kind(fields[4]));
        const bool none = bytes == 0 || fields[1] == 0 || fields[2] == 0 || fields[3] == 0;
        for (std::size_t axis = 1; !none && axis <= 3; ++axis) {
            if (bytes > left / fields[axis]) failRead();
            bytes *= fields[axis];
        }
        if (none) bytes = 0;
        budget.charge(bytes);
        if (spare_ != nullptr && bytes != 0 && spare_->byteSize() == bytes && spare_->data() != nullptr) {
            Array array = std::move(*std::exchange(spare_, nullptr));
            array.reshape(Kind(fields[4]), fields[1], fields[2], fields[3]);
            source_.take(array.data(), static_cast<std::size_t>(bytes));
            return array;
        }
        return Array::adopt(takeGrowing(bytes), Kind(fields[4]), fields[1], fields[2], fields[3]);
    }

    // Storage that grows as bytes arrive.
    ArrayStorage takeGrowing(std::uint64_t bytes)
    {
        ArrayStorage storage = allocateStorage(std::size_t(std::min(bytes, kGrowth)), Fill::Growing);
        for (std::uint64_t have = 0; have < bytes;) {
            const std::uint64_t step = std::min(bytes - have, std::max(kGrowth, have / 4));
            if (have != 0) growStorage(storage, std::size_t(have + step));
            source_.take(storage.get() + have, std::size_t(step));
            have += step;
        }
        return storage;
    }

    StructArray readStructArray(Budget& budget, int depth)
    {
        const auto kind = read<std::uint32_t>(budget);
        const auto count = read<std::uint32_t>(budget);
        if (kind != std::uint32_t(Kind::StructArray) || count > budget.left() / kHeaderSize) failRead();
        values_.charge(count);
        StructArray elements;
        for (std::uint32_t i = 0; i < count; ++i) elements.emplace_back(readNested(budget, depth));
        return elements;
    }

    Source& source_;
    Budget values_;  // that may still be read
    Array* spare_;   // null once its storage has been used
};

}  // namespace

varitype readRecord(BIO& source, const ReadLimits& limits, Array* spare)
{
    std::byte bytes[kHeaderSize];
    source.read(bytes, sizeof bytes);
    const Header header = parseHeader(bytes);
    if (header.size > limits.maxRecord) failRead();
    Source rest(source, header.size - kHeaderSize);
    return Decoder(rest, limits.maxValues, spare).readStruct(header, 1);
}

}  // namespace scansteps
