// Records for tests, and the records of a file.
#pragma once

#include <string>
#include <vector>

#include "scansteps/record.h"
#include "scansteps/stream.h"

namespace scansteps::test {

/// A record with a value of every kind, nested and empty ones among them.
inline varitype everyKind()
{
    Array halves(Kind::Half, 3, 2);
    halves.elements<Half>()[4] = Half(0.5F);
    Array ints(Kind::Int, 2, 3, 4);
    ints.elements<std::int32_t>()[23] = -5;
    return Struct{
        {"", "an empty key"},
        {"array", halves},
        {"arrayDefault", Array()},
        {"arrayInt", ints},
        {"arrayOfStrings", Array(Kind::String, 4, 5)},
        {"arrayZero", Array(Kind::Double, 0, 7)},
        {"char", std::int8_t{-3}},
        {"double", 1.0 / 3},
        {"empty", varitype()},
        {"eventType", 1002},
        {"float", -0.0F},
        {"half", Half(1.5F)},
        {"int", -7},
        {"short", std::int16_t{-300}},
        {"string", std::string("\xC3\xA4 and a zero \0 inside", 22)},
        {"stringEmpty", ""},
        {"struct", Struct{{"a", 1}, {"b", Struct{{"c", Struct{}}}}}},
        {"structs", StructArray{Struct{{"x", 1}}, Struct{}, Struct{{"y", ints}}}},
        {"structsNone", StructArray{}},
        {"uchar", std::uint8_t{200}},
        {"uint", std::uint32_t{4000000000U}},
        {"ushort", std::uint16_t{60000}},
    };
}

inline std::vector<varitype> recordsOf(const std::string& path)
{
    BIOfs in(path, BIOfs::Mode::Read);
    std::vector<varitype> records;
    while (!in.atEnd()) records.push_back(readRecord(in));
    return records;
}

}  // namespace scansteps::test
