// The handle table: numbered slots, owned by the host and used by every step. Records refer to frames by
// handle number, and steps take over frames by swapping two slots. Host and library share the layout of the
// table; each of them installs the same table in its own module and uses the operations below. Not
// thread-safe.
#pragma once

#include "scansteps/cpp20.h"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>

namespace scansteps {

/// What a handle refers to. The payload is not owned.
struct SlotRecord
{
    std::uint32_t tag = 0;  ///< free for use by the host
    void* payload = nullptr;
};

inline constexpr int kSlotCount = 2048;

/// The table shared by host and library. Slot 0 is never used; the host fills `freeHandles`.
struct HandleTable
{
    SlotRecord* slots[kSlotCount] = {};
    std::deque<int> freeHandles;
    std::map<int, std::uint64_t> values;
};

/// Fills `freeHandles` with 1 to 2047 in ascending order. Called by hosts.
void fillFreeHandles(HandleTable& table);

/// Installs the table that the operations of this module work on.
void installHandles(HandleTable* table);
/// The installed table, or null.
HandleTable* installedHandles();

/// Operations on the installed table. Those that take a handle throw "Handle::Invalid handle!!!" for a number
/// below 1 or above 2047 and "Handle::zero handle!!!" for one that is not allocated, and leave the table
/// unchanged.
namespace handles {
/// Takes the first free number; throws "Handle::no free handle" when there is none.
int allocate();
/// Deletes the slot record (not the payload). The number will be the next one to be allocated.
void release(int handle);
SlotRecord* record(int handle);
SlotRecord* setTag(int handle, std::uint32_t tag);
void* payload(int handle);
void setPayload(int handle, void* payload);
/// Swaps what the two handles refer to.
void swap(int a, int b);
/// Value that steps share under a numeric key; an absent key is inserted with the value 0.
std::uint64_t mapGet(int key);
void mapSet(std::uint64_t value, int key);
}  // namespace handles

}  // namespace scansteps
