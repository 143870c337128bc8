// Operations on the installed handle table.
#include "scansteps/handles.h"

#include <atomic>
#include <utility>

#include "scansteps/error.h"
#include "scansteps/host_services.h"

namespace scansteps {

namespace {

HandleTable* installed = nullptr;
// In the installed table's `values`. Threads of the steps read it while another chain takes its turn.
std::atomic<std::uint64_t*> servicesValue = nullptr;

HandleTable& table()
{
    if (installed == nullptr) fail("Handle::no table installed");
    return *installed;
}

SlotRecord*& checkedSlot(int handle)
{
    if (handle < 1 || handle >= kSlotCount) fail("Handle::Invalid handle!!!");
    SlotRecord*& slot = table().slots[handle];
    if (slot == nullptr) fail("Handle::zero handle!!!");
    return slot;
}

}  // namespace

void fillFreeHandles(HandleTable& table)
{
    for (int handle = 1; handle < kSlotCount; ++handle) table.freeHandles.push_back(handle);
}

void installHandles(HandleTable* table)
{
    servicesValue = table != nullptr ? &table->values[kHostServicesKey] : nullptr;
    installed = table;
}

// Does not search the map, because other threads may call this while a step inserts a value. Values of a map
// never move.
const HostServices* hostServices()
{
    std::uint64_t* const place = servicesValue.load(std::memory_order_acquire);
    if (place == nullptr) return nullptr;
    const std::uint64_t value = std::atomic_ref(*place).load(std::memory_order_acquire);
    // NOLINTNEXTLINE(performance-no-int-to-ptr): the table shares 64-bit numbers
    const auto* services = reinterpret_cast<const HostServices*>(static_cast<std::uintptr_t>(value));
    return services != nullptr && services->size >= sizeof(HostServices) ? services : nullptr;
}

HandleTable* installedHandles()
{
    return installed;
}

namespace handles {

int allocate()
{
    HandleTable& to = table();
    if (to.freeHandles.empty()) fail("Handle::no free handle");
    const int handle = to.freeHandles.front();
    if (handle < 1 || handle >= kSlotCount) fail("Handle::Invalid handle!!!");
    to.slots[handle] = new SlotRecord;
    to.freeHandles.pop_front();
    return handle;
}

void release(int handle)
{
    SlotRecord*& slot = checkedSlot(handle);
    delete slot;
    slot = nullptr;
    table().freeHandles.push_front(handle);
}

SlotRecord* record(int handle)
{
    return checkedSlot(handle);
}

SlotRecord* setTag(int handle, std::uint32_t tag)
{
    SlotRecord* slot = checkedSlot(handle);
    slot->tag = tag;
    return slot;
}

void* payload(int handle)
{
    return checkedSlot(handle)->payload;
}

void setPayload(int handle, void* payload)
{
    checkedSlot(handle)->payload = payload;
}

void swap(int a, int b)
{
    SlotRecord*& first = checkedSlot(a);
    SlotRecord*& second = checkedSlot(b);
    std::swap(first, second);
}

std::uint64_t mapGet(int key)
{
    return table().values[key];
}

void mapSet(std::uint64_t value, int key)
{
    table().values[key] = value;
}

}  // namespace handles
}  // namespace scansteps
