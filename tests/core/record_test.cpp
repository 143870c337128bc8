// Records, arrays and half floats in memory: sharing, copies, order, printing and documented errors.
#include "scansteps/record.h"
#include "scansteps/printable.h"
#include "support/test.h"

namespace scansteps {
namespace {

TEST(Record, documentedErrors)
{
    varitype empty;
    empty.setKind(Kind::Struct);
    varitype record{Struct{{"a", 7}, {"u", std::uint32_t{1002}}}};
    varitype scalar(5);
    EXPECT_EQ(thrownText([&] { empty["handle"]; }), "MustBe nsa ");
    EXPECT_EQ(thrownText([&] { empty.has("handle"); }), "MustBe nsa ");
    EXPECT_EQ(thrownText([&] { scalar["a"]; }), "MustBe nsa ");
    EXPECT_EQ(thrownText([&] { varitype(Struct{})["handle"]; }), "[handle] not found");
    EXPECT_EQ(thrownText([&] { record["b"]; }), "[b] not found");
    EXPECT_EQ(thrownText([&] { record.insert("a", 8); }), "[a] already found");
    EXPECT_EQ(thrownText([&] { record["u"].getv<std::int32_t>(); }), "varitype::getv() type error!");
    EXPECT_EQ(thrownText([&] { scalar.getv<Struct>(); }), "varitype::getv() type error!");
    EXPECT_EQ(record["a"].as<std::int32_t>(), 7);
}

TEST(Record, aCopyOfTheReferenceSharesAndAnAssignedStructDoesNot)
{
    varitype record{Struct{{"handle", 1},
                           {"nested", Struct{{"x", 1}}},
                           {"list", StructArray{Struct{{"y", 1}}}},
                           {"pixels", Array(Kind::Uchar, 4, 1)}}};
    varitype same = record;
    same["handle"].getv<std::int32_t>() = 2;
    EXPECT_EQ(record["handle"].as<std::int32_t>(), 2);

    varitype copy;
    copy.setKind(Kind::Struct);
    copy.getv<Struct>() = record.as<Struct>();
    const varitype kept = copyRecord(copy);
    copy["handle"].getv<std::int32_t>() = 3;
    copy["nested"]["x"].getv<std::int32_t>() = 3;
    copy["list"].getv<StructArray>()[0]["y"].getv<std::int32_t>() = 3;
    copy["pixels"].getv<Array>().data()[0] = std::byte{3};
    for (const varitype& other : {record, kept}) {
        EXPECT_EQ(other["handle"].as<std::int32_t>(), 2);
        EXPECT_EQ(other["nested"]["x"].as<std::int32_t>(), 1);
        EXPECT_EQ(other["list"].as<StructArray>()[0]["y"].as<std::int32_t>(), 1);
        EXPECT_EQ(other["pixels"].as<Array>().data()[0], std::byte{0});
    }
}

// Array bytes are shared between copies until written; a reference obtained for writing before the copy must
// not affect the copy.
TEST(Record, arrayBytesAreCopiedOnceAndOnlyWhenNeeded)
{
    varitype record{Struct{{"pixels", Array(Kind::Uchar, 4, 1)}}};
    const varitype shared = copyRecord(record);
    EXPECT_EQ(record["pixels"].as<Array>().data(), shared["pixels"].as<Array>().data());

    Array& writable = record["pixels"].getv<Array>();
    EXPECT_NE(writable.data(), shared["pixels"].as<Array>().data());
    const varitype later = copyRecord(record);
    writable.data()[0] = std::byte{9};
    EXPECT_EQ(later["pixels"].as<Array>().data()[0], std::byte{0});
    EXPECT_EQ(shared["pixels"].as<Array>().data()[0], std::byte{0});
    EXPECT_EQ(record["pixels"].as<Array>().data()[0], std::byte{9});
}

TEST(Record, entriesAreOrderedByBytesShorterFirst)
{
    Struct entries;
    for (const char* name : {"handle", "b", "\xC3\xA4", "ab", "a", "dataY", "dataX", "B"})
        entries.insert(name, 1);
    std::vector<std::string> names;
    for (const auto& entry : entries) names.push_back(entry.name);
    EXPECT_EQ(names, (std::vector<std::string>{"B", "a", "ab", "b", "dataX", "dataY", "handle", "\xC3\xA4"}));
    EXPECT_TRUE(entries.remove("b"));
    EXPECT_FALSE(entries.remove("b"));
    entries.set("a", 5);
    EXPECT_EQ(entries["a"].as<std::int32_t>(), 5);
}

TEST(Record, setKindAndTheStructWithoutPayload)
{
    varitype value(3);
    value.setKind(Kind::Array);
    EXPECT_TRUE(value.as<Array>().hasShape(Kind::Empty, 1, 1, 1));
    value.setKind(Kind::Float);
    EXPECT_EQ(value.as<float>(), 0.0F);
    value.setKind(Kind::Struct);
    EXPECT_FALSE(value.hasPayload());
    EXPECT_FALSE(copyRecord(value).hasPayload());
    EXPECT_FALSE(value.equals(varitype(Struct{})));
    EXPECT_EQ(thrownText([&] { value.as<Struct>(); }), "MustBe nsa ");
    value.insert("a", 1);
    EXPECT_EQ(value["a"].as<std::int32_t>(), 1);
}

TEST(Record, dumpHasTheMarkersOfStructsAndArrays)
{
    const Struct record{
        {"OCV", Struct{{"trh", 1.5F}}}, {"data", Array(Kind::Ushort, 4, 3)}, {"n\n", "\x1B[2J"}};
    const std::string text = dumpText(record, "Test::");
    for (const char* part :
         {"OCV Struct[] {\n", "size =24", "trh Float = 1.5", "n\\n String = \"\\u001B[2J\"\n"})
        EXPECT_THAT(text, HasSubstr(part));
}

TEST(Printable, onlyWhatIsSafeStays)
{
    const std::pair<std::string_view, const char*> cases[] = {
        {"a \"b\" \\ \xC3\xA4 \xE2\x82\xAC \xF0\x9F\x98\x80",
         "a \"b\" \\ \xC3\xA4 \xE2\x82\xAC \xF0\x9F\x98\x80"},
        {std::string_view("\0\n\r\t\x1B\x7F", 6), "\\u0000\\n\\r\\t\\u001B\\u007F"},
        {"\xC2\x9B\xC2\xA0", "\\u009B\xC2\xA0"},         // a terminal's control sequence; a blank
        {"\xE2\x80\xAE\xE2\x81\xA6", "\\u202E\\u2066"},  // writing direction
        {"\xFF\x80z", "\\xFF\\x80z"},
        {"\xC0\x8A\xE0\x80\x8A", "\\xC0\\x8A\\xE0\\x80\\x8A"},  // overlong line feeds
        {"\xED\xA0\x80\xF4\x90\x80\x80", "\\xED\\xA0\\x80\\xF4\\x90\\x80\\x80"},
        {"\xE2\x82", "\\xE2\\x82"},
    };
    for (const auto& [text, shown] : cases) EXPECT_EQ(printable(text), shown);
}

TEST(Half, roundTripOfEveryValueAndRoundingToNearestEven)
{
    for (std::uint32_t bits = 0; bits < 65536; ++bits) {
        Half half;
        half.bits = static_cast<std::uint16_t>(bits);
        const float value = float(half);
        if (value != value) continue;  // NaNs may lose their payload
        ASSERT_EQ(Half(value).bits, half.bits);
    }
    EXPECT_EQ(Half(2049.0F).bits, Half(2048.0F).bits);
    EXPECT_EQ(Half(2051.0F).bits, Half(2052.0F).bits);
}

// Host and library free and replace each other's storage.
TEST(Array, storageIsPlainMallocMemory)
{
    struct Layout
    {
        std::uint32_t dims[3];
        std::int32_t kind;
        void* storage;
    };
    Array array(Kind::Ushort, 3, 2);
    Layout layout;
    std::memcpy(&layout, &array, sizeof layout);
    std::free(layout.storage);
    layout = {{2, 5, 1}, std::int32_t(Kind::Float), std::calloc(10, 4)};
    std::memcpy(static_cast<void*>(&array), &layout, sizeof layout);
    EXPECT_EQ(array.elements<float>().size(), 10U);
    array.reshape(Kind::Uchar, 4, 1);
}

TEST(Array, shapesAndOverflow)
{
    EXPECT_EQ(Array(Kind::Float, 2560, 480).byteSize(), 4915200U);
    EXPECT_EQ(Array(Kind::Float, 0, 480).data(), nullptr);
    EXPECT_EQ(Array(Kind::String, 5, 5).byteSize(), 0U);
    EXPECT_EQ(thrownText([] { Array(Kind::Double, 0xFFFFFFFF, 0xFFFFFFFF, 0xFFFFFFFF); }), "array too large");
    Array array(Kind::Ushort, 3, 2);
    array.elements<std::uint16_t>()[5] = 7;
    Array copy = array;
    copy.reshape(Kind::Uchar, 6, 2);  // same bytes
    EXPECT_EQ(copy.data()[10], std::byte{7});
    copy.reshape(Kind::Uchar, 5, 2);
    EXPECT_TRUE(std::ranges::all_of(copy.bytes(), [](std::byte b) { return b == std::byte{0}; }));
    EXPECT_TRUE(array.elements<float>().empty());
}

}  // namespace
}  // namespace scansteps
