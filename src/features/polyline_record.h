// Polylines in records: the entry "fvertsArray", a struct array with "verts" (float 2 × N × 1: x, y in
// pixels) and "closed" (int, 1 when the last vertex is joined to the first) for each line.
#pragma once

#include <span>
#include <vector>

#include "features/polyline.h"
#include "scansteps/error.h"
#include "scansteps/record.h"

namespace scansteps {

/// Throws "[fvertsArray] already found" when the record holds the entry.
inline void insertPolylines(varitype& record, std::span<const Polyline> lines)
{
    StructArray array;
    array.reserve(lines.size());
    for (const Polyline& line : lines) {
        Array verts(Kind::Float, 2, std::uint32_t(line.verts.size()));
        float* to = verts.elements<float>().data();
        for (const Vertex& v : line.verts) {
            *to++ = v.x;
            *to++ = v.y;
        }
        array.emplace_back(Struct{{"closed", line.closed ? 1 : 0}, {"verts", std::move(verts)}});
    }
    record.insert("fvertsArray", std::move(array));
}

/// The polylines of "fvertsArray". Throws when a "verts" is no float array of two numbers a vertex, and what
/// the record throws for entries that are missing or of another kind.
inline std::vector<Polyline> polylinesOf(const varitype& record)
{
    std::vector<Polyline> lines;
    for (const varitype& entry : record["fvertsArray"].as<StructArray>()) {
        const varitype verts = entry["verts"];
        const Array& array = verts.as<Array>();
        const auto numbers = array.elements<float>();
        if (array.kind() != Kind::Float || array.dim(0) != 2 || numbers.size() % 2 != 0)
            fail("fvertsArray: not two floats a vertex");
        Polyline& line = lines.emplace_back();
        line.closed = entry["closed"].as<std::int32_t>() != 0;
        for (std::size_t i = 0; i < numbers.size(); i += 2)
            line.verts.push_back({numbers[i], numbers[i + 1]});
    }
    return lines;
}

}  // namespace scansteps
