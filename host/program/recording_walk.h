// Reads a recording record by record up to the first damage, or past damaged records on demand.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "scansteps/stream.h"

namespace scansteps::host {

struct RecordPlace
{
    std::uint64_t number = 0, offset = 0, size = 0;
};

/// Part of a recording that holds no whole record.
struct Damage
{
    std::uint64_t offset = 0;
    std::uint64_t skipped = 0;  ///< bytes; 0: the walk ended there
    std::string what;           ///< the reader's message and the system's reason
};

struct Walk
{
    std::uint64_t records = 0, bytes = 0;  ///< of the whole records
    bool hasEnd = false;                   ///< the last of them is an end record
    bool failed = false;                   ///< the system could not read the file to its end
    std::vector<Damage> damage;
};

/// Calls `visit` with every whole record. A damaged record ends the walk or, with `skipDamage`, is skipped by
/// its size field; where that cannot be right, the rest of the file is.
Walk walkRecording(BIOfs& file, bool skipDamage,
                   const std::function<void(const RecordPlace&, const varitype&)>& visit);

}  // namespace scansteps::host
