// Encodes records. Everything except array storage is encoded into one buffer; the parts of the buffer and
// the arrays between them are written with one gathered write.
#include <bit>
#include <cstring>
#include <limits>

#include "core/byte_form.h"
#include "scansteps/error.h"
#include "scansteps/stream.h"

namespace scansteps {

static_assert(std::endian::native == std::endian::little, "the byte form is little-endian, as in memory");

namespace {

using namespace byteform;

class Encoder
{
  public:
    Encoder() { bytes_.reserve(512); }

    /// If `frame` is given, it is written as "data" and an entry "handle" is omitted.
    void putStruct(const varitype& value, int depth, const Array* frame = nullptr)
    {
        if (depth > kMaxNesting) fail("record nested too deeply");
        if (value.kind() != Kind::Struct || !value.hasPayload()) fail("MustBe pnt ");
        const Struct& entries = value.as<Struct>();
        const std::size_t sizeAt = bytes_.size();
        const std::uint64_t arraysBefore = arrayBytes_;
        put(std::uint64_t{0});  // patched below
        put(std::uint32_t(Kind::Struct));
        put(std::uint32_t(entries.size() + (frame != nullptr && !entries.has("handle") ? 1 : 0)));

        forEach(entries, frame, [&](std::string_view name, Kind kind, const varitype*) {
            putString(name);
            put(std::uint32_t(kind));
        });
        forEach(entries, frame, [&](std::string_view, Kind, const varitype* entry) {
            if (entry == nullptr)
                putArray(*frame);
            else
                putValue(*entry, depth);
        });
        const std::uint64_t size = bytes_.size() - sizeAt + (arrayBytes_ - arraysBefore);
        std::memcpy(bytes_.data() + sizeAt, &size, sizeof size);
    }

    void writeTo(BIO& sink)
    {
        std::vector<std::span<const std::byte>> pieces;
        pieces.reserve(2 * arrays_.size() + 1);
        std::size_t from = 0;
        for (const auto& [at, storage] : arrays_) {
            pieces.emplace_back(bytes_.data() + from, at - from);
            pieces.push_back(storage);
            from = at;
        }
        if (from != bytes_.size()) pieces.emplace_back(bytes_.data() + from, bytes_.size() - from);
        sink.writeGather(pieces);
    }

  private:
    // Visits the entries in key order. With a frame, "data" is visited with a null entry and "handle" is
    // skipped.
    template <class Visit>
    static void forEach(const Struct& entries, const Array* frame, Visit visit)
    {
        bool pending = frame != nullptr;
        for (const auto& entry : entries) {
            if (frame != nullptr && entry.name == "handle") continue;
            if (pending && entry.name > "data") {
                visit("data", Kind::Array, nullptr);
                pending = false;
            }
            visit(std::string_view(entry.name), entry.value.kind(), &entry.value);
        }
        if (pending) visit("data", Kind::Array, nullptr);
    }

    void put(const void* from, std::size_t length)
    {
        const auto* begin = static_cast<const std::byte*>(from);
        bytes_.insert(bytes_.end(), begin, begin + length);
    }

    template <class T>
    void put(T value)
    {
        put(&value, sizeof value);
    }

    void putString(std::string_view text)
    {
        if (text.size() > std::numeric_limits<std::uint32_t>::max() - kLengthOffset - 1)
            fail("string too long");
        put(static_cast<std::uint32_t>(text.size() + 1 + kLengthOffset));
        const std::size_t at = bytes_.size();
        bytes_.resize(at + text.size() + 1);
        for (std::size_t i = 0; i < text.size(); ++i)
            bytes_[at + i] = static_cast<std::byte>(static_cast<unsigned char>(text[i]) - kCharOffset - i);
        bytes_[at + text.size()] = static_cast<std::byte>(0U - kCharOffset - text.size());
    }

    void putArray(const Array& array)
    {
        put(std::uint32_t(Kind::Array));
        for (std::size_t axis = 0; axis < 3; ++axis) put(array.dim(axis));
        put(std::uint32_t(array.kind()));
        if (array.byteSize() == 0) return;
        arrays_.push_back({bytes_.size(), array.bytes()});
        arrayBytes_ += array.byteSize();
    }

    void putValue(const varitype& value, int depth)
    {
        switch (value.kind()) {
            case Kind::Empty:
                break;
            case Kind::Char:
                put(value.as<std::int8_t>());
                break;
            case Kind::Uchar:
                put(value.as<std::uint8_t>());
                break;
            case Kind::Short:
                put(value.as<std::int16_t>());
                break;
            case Kind::Ushort:
                put(value.as<std::uint16_t>());
                break;
            case Kind::Int:
                put(value.as<std::int32_t>());
                break;
            case Kind::Uint:
                put(value.as<std::uint32_t>());
                break;
            case Kind::Half:
                put(value.as<Half>().bits);
                break;
            case Kind::Float:
                put(value.as<float>());
                break;
            case Kind::Double:
                put(value.as<double>());
                break;
            case Kind::String:
                putString(value.as<std::string>());
                break;
            case Kind::Struct:
                putStruct(value, depth + 1);
                break;
            case Kind::Array:
                putArray(value.as<Array>());
                break;
            case Kind::StructArray:
                put(std::uint32_t(Kind::StructArray));
                put(static_cast<std::uint32_t>(value.as<StructArray>().size()));
                for (const varitype& element : value.as<StructArray>()) putStruct(element, depth + 1);
                break;
        }
    }

    struct StoredArray
    {
        std::size_t at;  // position in bytes_ before which the storage is written
        std::span<const std::byte> storage;
    };
    std::vector<std::byte> bytes_;
    std::vector<StoredArray> arrays_;
    std::uint64_t arrayBytes_ = 0;
};

void write(BIO& sink, const varitype& record, const Array* frame)
{
    Encoder encoder;
    encoder.putStruct(record, 1, frame);
    encoder.writeTo(sink);
}

}  // namespace

void BIO::writeGather(std::span<const std::span<const std::byte>> pieces)
{
    for (const auto piece : pieces) write(piece.data(), piece.size());
}

void writeRecord(BIO& sink, const varitype& record)
{
    write(sink, record, nullptr);
}

void writeRecordWithFrame(BIO& sink, const varitype& record, const Array& frame)
{
    if (record.has("data")) fail("[data] already found");
    write(sink, record, &frame);
}

std::uint64_t recordSize(const varitype& record)
{
    struct Counter final : BIO
    {
        void write(const void*, std::size_t length) override { bytes += length; }
        void read(void*, std::size_t) override { fail("read error"); }
        std::uint64_t bytes = 0;
    };
    Counter counter;
    writeRecord(counter, record);
    return counter.bytes;
}

}  // namespace scansteps
