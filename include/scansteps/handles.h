// The handle table: numbered slots that the host owns and every step uses. Frames travel by handle number,
// and steps pass them on by swapping two slots. Host and library share the table's layout; both install the
// same table, each in its own module, and use the operations below on it. Not thread-safe.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>

namespace scansteps {

/// What a handle names. The record does not own the payload.
struct SlotRecord
{
    std::uint32_t kind = 0;
    void* payload = nullptr;
};

inline constexpr int kSlotCount = 2048;

/// The table as host and library share it. Index 0 is never used; the host fills `freeHandles`.
struct HandleTable
{
    SlotRecord* slots[kSlotCount] = {};
    std::deque<int> freeHandles;
    std::map<int, std::uint64_t> values;
};

/// Fills `freeHandles` with 1 to 2047, ascending, as the usual host does.
void fillFreeHandles(HandleTable& table);

/// Installs the table that the operations of this module work on.
void installHandles(HandleTable* table);
/// The installed table, or null.
HandleTable* installedHandles();

/// Operations on the installed table. All of them throw "Handle::Invalid handle!!!" for a number below 1 or
/// above 2047 and "Handle::zero handle!!!" for one that is not allocated; the table is unchanged then.
namespace handles {
/// The number at the front of the free ones; throws "Handle::no free handle" when there is none.
int allocate();
/// Frees the slot record (not the payload); the number is the next one to be allocated.
void release(int handle);
SlotRecord* record(int handle);
SlotRecord* setKind(int handle, std::uint32_t kind);
void* payload(int handle);
void setPayload(int handle, void* payload);
/// Exchanges what the two numbers name.
void swap(int a, int b);
/// Value that steps share by number; an absent key is inserted with 0.
std::uint64_t mapGet(int key);
void mapSet(std::uint64_t value, int key);
}  // namespace handles

}  // namespace scansteps
