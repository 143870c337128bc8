// Calls code with the element type of an array.
#pragma once

#include <cstdint>

#include "scansteps/record.h"

namespace scansteps::host {

/// Calls visit with a null pointer of the element type of `kind`; not for a kind that has none.
template <class Visit>
void withElementType(Kind kind, Visit visit)
{
    switch (kind) {
        case Kind::Char:
            return visit(static_cast<std::int8_t*>(nullptr));
        case Kind::Uchar:
            return visit(static_cast<std::uint8_t*>(nullptr));
        case Kind::Short:
            return visit(static_cast<std::int16_t*>(nullptr));
        case Kind::Ushort:
            return visit(static_cast<std::uint16_t*>(nullptr));
        case Kind::Int:
            return visit(static_cast<std::int32_t*>(nullptr));
        case Kind::Uint:
            return visit(static_cast<std::uint32_t*>(nullptr));
        case Kind::Half:
            return visit(static_cast<Half*>(nullptr));
        case Kind::Float:
            return visit(static_cast<float*>(nullptr));
        case Kind::Double:
            return visit(static_cast<double*>(nullptr));
        default:
            return;
    }
}

}  // namespace scansteps::host
