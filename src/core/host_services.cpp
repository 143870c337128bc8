// Stores the host's services among the shared values of the handle table.
#include "scansteps/host_services.h"

#include <atomic>
#include <cstddef>

namespace scansteps {

void installHostServices(HandleTable& table, const HostServices* services)
{
    const std::uint64_t value = reinterpret_cast<std::uintptr_t>(services);
    std::atomic_ref(table.values[kHostServicesKey]).store(value, std::memory_order_release);
}

void notifyHost(Trouble trouble, const char* step, const char* file, const char* reason)
{
    const HostServices* services = hostServices();
    if (services == nullptr || services->notify == nullptr) return;
    const auto text = [](const char* given) { return given != nullptr ? given : ""; };
    services->notify(services->context, {trouble, text(step), text(file), text(reason)});
}

bool hostInterrupted()
{
    const HostServices* services = hostServices();
    return services != nullptr && services->interrupted != nullptr &&
           services->interrupted(services->context);
}

std::intptr_t hostWake()
{
    const HostServices* services = hostServices();
    return services != nullptr ? services->wake : -1;
}

bool hostStages()
{
    const HostServices* services = hostServices();
    // An older host's structure ends before this member.
    return services != nullptr &&
           services->size >= offsetof(HostServices, keeps) + sizeof(HostServices::keeps) &&
           services->keeps != nullptr;
}

bool hostKeeps()
{
    if (!hostStages()) return true;
    const HostServices* services = hostServices();
    return services->keeps(services->context);
}

}  // namespace scansteps
