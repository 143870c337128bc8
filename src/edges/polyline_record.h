// Polylines in records: the entry "fvertsArray", a struct array with "verts" (float 2 × N × 1: x, y in
// pixels) and "closed" (int, 1 when the last vertex is joined to the first) for each line.
#pragma once

#include "edges/polyline.h"
#include "scansteps/error.h"
#include "scansteps/record.h"

namespace scansteps::edges {

/// Adds the entry. Throws "[fvertsArray] already found" when the record has it.
inline void insertPolylines(varitype& record, const Polylines& lines)
{
    StructArray array;
    array.reserve(lines.size());
    for (std::size_t i = 0; i < lines.size(); ++i) {
        const auto [items, closed] = lines[i];
        Array verts(Kind::Float, 2, std::uint32_t(items.size()));
        float* to = verts.elements<float>().data();
        for (const Vertex& v : items) {
            *to++ = v.x;
            *to++ = v.y;
        }
        Struct line;
        line.reserve(2);
        line.set("closed", closed ? 1 : 0);
        line.set("verts", std::move(verts));
        array.emplace_back(std::move(line));
    }
    record.insert("fvertsArray", std::move(array));
}

/// Reads the polylines of "fvertsArray", which replace the contents of `lines`. Throws when a "verts" is not
/// a float array of two numbers per vertex, and what the record throws for missing entries and other kinds.
inline void polylinesOf(const varitype& record, Polylines& lines)
{
    lines.clear();
    for (const varitype& entry : record["fvertsArray"].as<StructArray>()) {
        const varitype verts = entry["verts"];
        const Array& array = verts.as<Array>();
        const auto numbers = array.elements<float>();
        if (array.kind() != Kind::Float || array.dim(0) != 2 || numbers.size() % 2 != 0)
            fail("fvertsArray: not two floats a vertex");
        for (std::size_t i = 0; i < numbers.size(); i += 2) lines.add({numbers[i], numbers[i + 1]});
        lines.finish(entry["closed"].as<std::int32_t>() != 0);
    }
}

}  // namespace scansteps::edges
