// The byte form of records: documented bytes, round trips, and untrusted input.
#include "scansteps/stream.h"

#include "support/test.h"

#ifndef _WIN32
#include <sys/resource.h>
#endif

namespace scansteps {
namespace {

std::vector<std::uint8_t> bytesOf(const varitype& record)
{
    BIOmem out;
    writeRecord(out, record);
    const auto* from = reinterpret_cast<const std::uint8_t*>(out.bytes().data());
    return {from, from + out.bytes().size()};
}

varitype fromBytes(const std::vector<std::uint8_t>& bytes)
{
    BIOmem in(std::as_bytes(std::span(bytes)));
    return readRecord(in);
}

std::string readError(const std::vector<std::uint8_t>& bytes)
{
    return thrownText([&] { fromBytes(bytes); });
}

// Builds little-endian bytes field by field.
struct Bytes : std::vector<std::uint8_t>
{
    template <class T>
    Bytes& put(T value)
    {
        const auto* from = reinterpret_cast<const std::uint8_t*>(&value);
        insert(end(), from, from + sizeof value);
        return *this;
    }
    Bytes& u32(std::uint32_t value) { return put(value); }
    Bytes& header(std::uint64_t size, std::uint32_t count, std::uint32_t kind = 11)
    {
        return put(size).u32(kind).u32(count);
    }
    Bytes& text(const std::string& text)
    {
        u32(static_cast<std::uint32_t>(text.size() + 100));
        for (std::size_t i = 0; i <= text.size(); ++i)
            push_back(static_cast<std::uint8_t>(static_cast<unsigned char>(text.c_str()[i]) - 10 - i));
        return *this;
    }
};

TEST(RecordBytes, AreAsDocumented)
{
    EXPECT_EQ(bytesOf(Struct{}),
              (std::vector<std::uint8_t>{16, 0, 0, 0, 0, 0, 0, 0, 11, 0, 0, 0, 0, 0, 0, 0}));
    EXPECT_EQ(bytesOf(Struct{{"a", 7}}),
              (std::vector<std::uint8_t>{30, 0,   0, 0, 0, 0,    0,    0, 11, 0, 0, 0, 1, 0, 0,
                                         0,  101, 0, 0, 0, 0x57, 0xF5, 5, 0,  0, 0, 7, 0, 0, 0}));
    // "ab": length field 102, then 'a', 'b' and the zero less 10, 11 and 12.
    const auto two = bytesOf(Struct{{"ab", varitype()}});
    EXPECT_EQ(std::vector<std::uint8_t>(two.begin() + 16, two.begin() + 23),
              (std::vector<std::uint8_t>{102, 0, 0, 0, 'a' - 10, 'b' - 11, 0xF4}));
    // Keys are in byte order, regardless of the order of insertion.
    EXPECT_EQ(bytesOf(Struct{{"handle", 1}, {"eventType", 2}, {"dataY", 3}, {"dataX", 4}}),
              bytesOf(Struct{{"dataX", 4}, {"dataY", 3}, {"eventType", 2}, {"handle", 1}}));
}

// The byte-by-byte example of docs/recording-format.md.
TEST(RecordBytes, AreThoseOfTheDocumentation)
{
    std::istringstream page(readFile(SCANSTEPS_SOURCE_DIR "/docs/recording-format.md"));
    std::vector<std::uint8_t> documented;
    for (std::string line; std::getline(page, line);) {
        if (!line.starts_with("    00")) continue;
        std::istringstream bytes(line.substr(10));
        for (unsigned byte = 0; bytes >> std::hex >> byte;) documented.push_back(std::uint8_t(byte));
    }
    Array frame(Kind::Ushort, 2, 2);
    for (int i = 0; i < 4; ++i) frame.elements<std::uint16_t>()[std::size_t(i)] = std::uint16_t(i + 1);
    EXPECT_EQ(documented, bytesOf(Struct{{"data", frame}, {"eventType", 1002}, {"name", "a.jpg"}}));
}

TEST(RecordBytes, OfEveryKindComeBack)
{
    const varitype record = everyKind();
    const auto bytes = bytesOf(record);
    EXPECT_EQ(bytes.size(), recordSize(record));
    const varitype back = fromBytes(bytes);
    EXPECT_TRUE(back.equals(record)) << dumpText(back, "");
    EXPECT_EQ(bytesOf(back), bytes);
}

TEST(RecordBytes, WithAFrameAreThoseOfTheRecordWithData)
{
    Array frame(Kind::Ushort, 31, 7);
    frame.elements<std::uint16_t>()[5] = 0x1234;
    // Keys on both sides of "data", which has to be inserted in order.
    const Struct with{{"aa", 1}, {"data", frame}, {"eventType", 1002}, {"zz", "text"}};
    const Struct handle{{"aa", 1}, {"eventType", 1002}, {"handle", 9}, {"zz", "text"}};
    BIOmem out;
    writeRecordWithFrame(out, handle, frame);
    const auto expected = bytesOf(with);
    ASSERT_EQ(out.bytes().size(), expected.size());
    EXPECT_EQ(std::memcmp(out.bytes().data(), expected.data(), expected.size()), 0);
    BIOmem none;
    EXPECT_EQ(thrownText([&] { writeRecordWithFrame(none, with, frame); }), "[data] already found");
}

TEST(RecordBytes, OfWhatCannotBeReadBackAreNotWritten)
{
    BIOmem out;
    varitype hollow;
    hollow.setKind(Kind::Struct);
    EXPECT_EQ(thrownText([&] { writeRecord(out, hollow); }), "MustBe pnt ");
    EXPECT_EQ(thrownText([&] { writeRecord(out, Struct{{"a", StructArray{hollow}}}); }), "MustBe pnt ");
    EXPECT_EQ(thrownText([&] { writeRecord(out, Struct{{"a", StructArray{varitype(1)}}}); }), "MustBe pnt ");
    varitype deep = Struct{};
    for (int i = 1; i < kMaxNesting; ++i) deep = Struct{{"a", deep}};
    EXPECT_TRUE(fromBytes(bytesOf(deep)).equals(deep));
    EXPECT_EQ(thrownText([&] { writeRecord(out, Struct{{"a", deep}}); }), "record nested too deeply");
    EXPECT_TRUE(out.bytes().empty());
}

TEST(RecordBytes, KeysOutOfOrderAreSortedAndDoubleOnesRefused)
{
    const auto two = [](const char* first, const char* second) {
        return Bytes()
            .header(16 + 2 * 14 - 8 + 2, 2)
            .text(first)
            .u32(1)
            .text(second)
            .u32(2)
            .put<std::uint8_t>(1)
            .put<std::uint8_t>(2);
    };
    EXPECT_TRUE(fromBytes(two("b", "a")).equals(Struct{{"a", std::uint8_t{2}}, {"b", std::int8_t{1}}}));
    EXPECT_EQ(readError(two("a", "a")), "Read Error");
}

TEST(HostileRecords, AreRefused)
{
    const auto arrayOf = [](std::uint32_t x, std::uint32_t y, std::uint32_t z, std::uint32_t kind,
                            std::uint64_t size) {
        return Bytes().header(size, 1).text("a").u32(12).u32(12).u32(x).u32(y).u32(z).u32(kind);
    };
    const struct
    {
        const char* what;
        Bytes bytes;
        const char* error;
    } cases[] = {
        {"nothing", Bytes(), "read error"},
        {"size below the header", Bytes().header(15, 0), "Read Error"},
        {"size beyond the entries", Bytes().header(17, 0).put<std::uint8_t>(0), "Read Error"},
        {"size without the value", Bytes().header(26, 1).text("a").u32(5), "Read Error"},
        {"top level no struct", Bytes().header(16, 0, 12), "Read Error"},
        {"more entries than bytes", Bytes().header(16 + 90, 11), "Read Error"},
        {"all entries promised", Bytes().header(UINT64_MAX, UINT32_MAX), "read error"},
        {"kind above 13", Bytes().header(26, 1).text("a").u32(14), "Read Error"},
        {"key without its zero", Bytes().header(26, 1).u32(101).put<std::uint16_t>(0x5757).u32(0),
         "Read Error"},
        {"key of no bytes", Bytes().header(26, 1).u32(99).u32(0).u32(0), "Read Error"},
        {"key longer than the record", Bytes().header(26, 1).u32(5000).u32(0).u32(0), "Read Error"},
        {"array's kind is not repeated",
         Bytes().header(46, 1).text("a").u32(12).u32(11).u32(0).u32(0).u32(0).u32(1), "Read Error"},
        {"array of unknown elements", arrayOf(0, 0, 0, 14, 46), "Read Error"},
        {"array beyond the record", arrayOf(2, 1, 1, 1, 47).put<std::uint8_t>(0), "Read Error"},
        {"array whose size overflows", arrayOf(0x10000, 0x10000, 0x10000, 9, UINT64_MAX), "read error"},
        {"array whose size wraps to 0", arrayOf(0x80000000, 0x80000000, 4, 1, 46), "Read Error"},
        {"array of 2^61 bytes, none sent", arrayOf(1 << 31, 1 << 30, 1, 1, UINT64_MAX), "read error"},
        {"struct array beyond the record", Bytes().header(34, 1).text("a").u32(13).u32(13).u32(1),
         "Read Error"},
        {"struct array of 2^32 - 1, none sent",
         Bytes().header(UINT64_MAX, 1).text("a").u32(13).u32(13).u32(UINT32_MAX), "read error"},
        {"nested record longer than its outer one", Bytes().header(42, 1).text("a").u32(11).header(17, 0),
         "Read Error"},
        {"nested record shorter than its entries",
         Bytes().header(52, 1).text("a").u32(11).header(25, 1).text("b").u32(0), "Read Error"},
    };
    for (const auto& entry : cases) EXPECT_EQ(readError(entry.bytes), entry.error) << entry.what;
}

TEST(HostileRecords, NestedWithoutEndLargerThanTheLimitOrCutAnywhereAreRefused)
{
    Bytes nested;
    for (int level = 0; level < 100000; ++level)
        nested.header(std::uint64_t(100000 - level) * 26 - 10, 1).text("a").u32(11);
    EXPECT_EQ(readError(nested), "Read Error");

    const auto bytes = bytesOf(everyKind());
    BIOmem in(std::as_bytes(std::span(bytes)));
    EXPECT_EQ(thrownText([&] { readRecord(in, {bytes.size() - 1}); }), "Read Error");
    EXPECT_EQ(in.position(), 16U) << "refused by its header";
    for (std::size_t length = 0; length < bytes.size(); ++length)
        EXPECT_EQ(readError({bytes.begin(), bytes.begin() + std::ptrdiff_t(length)}), "read error") << length;
}

TEST(RecordStreams, ReaderTakesNotAByteBeyondTheRecord)
{
    std::mt19937 random(1);
    BIOmem stream;
    std::vector<varitype> records;
    // Around the sizes of the read-ahead buffer.
    for (const std::uint32_t length : {0U, 1U, 4000U, 4040U, 4096U, 16300U, 16384U, 20000U, 70000U}) {
        Array array(Kind::Uchar, length, 1);
        for (auto& byte : array.elements<std::uint8_t>()) byte = std::uint8_t(random());
        records.push_back(Struct{{"a", array}, {"b", int(length)}});
        writeRecord(stream, records.back());
    }
    for (const varitype& record : records) EXPECT_TRUE(readRecord(stream).equals(record));
    EXPECT_TRUE(stream.atEnd());
}

TEST(RecordStreams, LongStringsComeBack)
{
    // Around the length from which strings are read in several pieces.
    for (const std::size_t length : {(4U << 20) - 2, (4U << 20) - 1, 4U << 20, 9U << 20}) {
        std::string text(length, 'a');
        for (std::size_t i = 0; i < length; i += 1000) text[i] = char(i >> 10);
        const varitype record = Struct{{"k", text}, {"z", 1}};
        EXPECT_TRUE(fromBytes(bytesOf(record)).equals(record)) << length;
    }
}

TEST(RecordStreams, ReaderUsesTheSpareStorage)
{
    Array frame(Kind::Ushort, 640, 480), spare(Kind::Float, 320, 480);
    frame.elements<std::uint16_t>()[77] = 7;
    const std::byte* storage = spare.data();
    BIOmem stream;
    writeRecord(stream, Struct{{"data", frame}, {"other", frame}});
    const varitype record = readRecord(stream, {}, &spare);
    EXPECT_EQ(record["data"].as<Array>().data(), storage);
    EXPECT_TRUE(record.equals(Struct{{"data", frame}, {"other", frame}}));
}

TEST(FileStream, KeepsRecordsAndPositions)
{
    const TempDir dir;
    const std::string path = dir / "run.rec";
    BIOfs out(path, BIOfs::Mode::Write);
    ASSERT_TRUE(out.isOpen());
    for (int i = 0; i < 100; ++i) writeRecord(out, Struct{{"i", i}, {"frame", Array(Kind::Float, 100, i)}});
    EXPECT_EQ(thrownText([&] { readRecord(out); }), "read error");
    out.close();

    BIOfs in(path, BIOfs::Mode::Read);
    EXPECT_EQ(thrownText([&] { writeRecord(in, Struct{}); }), "write error");
    std::uint64_t position = 0;
    for (int i = 0; i < 100; ++i) {
        EXPECT_FALSE(in.atEnd());
        const varitype record = readRecord(in);
        EXPECT_TRUE(record.equals(Struct{{"i", i}, {"frame", Array(Kind::Float, 100, i)}}));
        position += recordSize(record);
        EXPECT_EQ(in.position(), position);
    }
    EXPECT_TRUE(in.atEnd());
    EXPECT_EQ(thrownText([&] { readRecord(in); }), "read error");
}

// More pieces than one system call can write.
TEST(FileStream, ManyArraysLeaveInOneRecord)
{
    const TempDir dir;
    Struct many;
    for (int i = 0; i < 2000; ++i) many.set("k" + std::to_string(i), Array(Kind::Uchar, 10, i % 3));
    BIOfs out(dir / "many.rec", BIOfs::Mode::Write);
    writeRecord(out, many);
    out.close();
    EXPECT_TRUE(recordsOf(dir / "many.rec").at(0).equals(many));
}

TEST(FileStream, WhatCannotBeOpenedOrReadSaysWhy)
{
    const TempDir dir;
    BIOfs in(dir / "missing", BIOfs::Mode::Read), out(dir / "no/such/folder", BIOfs::Mode::Write);
    EXPECT_FALSE(in.isOpen() || out.isOpen());
    EXPECT_EQ(in.reason(), "No such file or directory");
    EXPECT_TRUE(in.atEnd());
    EXPECT_EQ(thrownText([&] { readRecord(in); }), "read error");
    EXPECT_EQ(thrownText([&] { writeRecord(out, Struct{}); }), "write error");
#ifndef _WIN32  // where a folder cannot be opened
    BIOfs folder(dir.path().string(), BIOfs::Mode::Read);
    EXPECT_EQ(thrownText([&] { folder.atEnd(); }), "read error");
    EXPECT_EQ(folder.reason(), "Is a directory");
#endif
}

TEST(FileStream, DoesNotOverwriteAFileThatIsBeingPlayed)
{
    const TempDir dir;
    const std::string path = dir.write("run.rec", "precious");
    {
        const BIOfs in(path, BIOfs::Mode::Read);
        EXPECT_TRUE(in.isOpen());
        EXPECT_FALSE(BIOfs(path, BIOfs::Mode::Write).isOpen());
    }
    EXPECT_EQ(readFile(path), "precious");
    EXPECT_TRUE(BIOfs(path, BIOfs::Mode::Write).isOpen());
    EXPECT_EQ(readFile(path), "");
}

// Not on Windows, which has no limit on the size of files.
#ifndef _WIN32
TEST(FileStream, SizeLimitIsAWriteErrorThatLeavesWholeRecords)
{
    const TempDir dir;
    rlimit before{};
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &before), 0);
    rlimit limited = before;
    limited.rlim_cur = 10000;
    const Struct record{{"a", Array(Kind::Uchar, 1000, 1)}};
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limited), 0);
    const std::uint64_t whole = 9 * recordSize(record);
    BIOfs out(dir / "run.rec", BIOfs::Mode::Write);
    for (int i = 0; i < 9; ++i) writeRecord(out, record);
    const std::string error = thrownText([&] { writeRecord(out, record); });
    const std::string later = thrownText([&] { writeRecord(out, Struct{}); });  // which would fit
    setrlimit(RLIMIT_FSIZE, &before);
    EXPECT_EQ(error, "write error");
    EXPECT_EQ(later, "write error");
    EXPECT_EQ(out.reason(), "File too large");
    EXPECT_EQ(readFile(dir / "run.rec").size(), whole);
}
#endif

}  // namespace
}  // namespace scansteps
