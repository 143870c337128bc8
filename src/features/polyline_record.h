// Polylines in records: the entry "fvertsArray", a struct array with "verts" (float 2 × N × 1: x, y in
// pixels) and "closed" (int, 1 when the last vertex is joined to the first) for each line.
#pragma once

#include <span>

#include "features/polyline.h"
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

}  // namespace scansteps
