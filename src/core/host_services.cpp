#include "scansteps/host_services.h"

namespace scansteps {

void installHostServices(HandleTable& table, const HostServices* services)
{
    if (services == nullptr)
        table.values.erase(kHostServicesKey);
    else
        table.values[kHostServicesKey] = reinterpret_cast<std::uintptr_t>(services);
}

const HostServices* hostServices()
{
    const HandleTable* table = installedHandles();
    if (table == nullptr) return nullptr;
    const auto found = table->values.find(kHostServicesKey);
    if (found == table->values.end()) return nullptr;
    const auto* services = reinterpret_cast<const HostServices*>(static_cast<std::uintptr_t>(found->second));
    return services != nullptr && services->size >= sizeof(HostServices) ? services : nullptr;
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

}  // namespace scansteps
