// Stores the host's services among the shared values of the handle table.
#include "scansteps/host_services.h"

#include <atomic>

#include "core/captured_output.h"

namespace scansteps {

namespace {

// Hosts built with an earlier version of the structure lack its later members.
template <class Member>
bool hasMember(const HostServices* services, Member HostServices::*member)
{
    if (services == nullptr) return false;
    const auto end = reinterpret_cast<std::uintptr_t>(&(services->*member)) + sizeof(Member);
    return end - reinterpret_cast<std::uintptr_t>(services) <= services->size;
}

}  // namespace

void installHostServices(HandleTable& table, const HostServices* services)
{
    const std::uint64_t value = reinterpret_cast<std::uintptr_t>(services);
    std::atomic_ref(table.values[kHostServicesKey]).store(value, std::memory_order_release);
}

void notifyHost(Trouble trouble, const char* step, const char* file, const char* reason)
{
    const auto text = [](const char* given) { return given != nullptr ? given : ""; };
    if (CapturedOutput* const captured = CapturedOutput::ofThisThread())
        return captured->addNotice(trouble, text(step), text(file), text(reason));
    const HostServices* services = hostServices();
    if (services == nullptr || services->notify == nullptr) return;
    services->notify(services->context, {trouble, text(step), text(file), text(reason)});
}

bool hostInterrupted()
{
    const HostServices* services = hostServices();
    return services != nullptr && services->interrupted != nullptr &&
           services->interrupted(services->context);
}

bool hostReadsOwnOutput()
{
    const HostServices* services = hostServices();
    return hasMember(services, &HostServices::readsOwnOutput) && services->readsOwnOutput;
}

void tellWorkerTime(const char* step, std::int64_t microseconds)
{
    const HostServices* services = hostServices();
    if (hasMember(services, &HostServices::workerTime) && services->workerTime != nullptr)
        services->workerTime(services->context, step, microseconds);
}

std::intptr_t hostWake()
{
    const HostServices* services = hostServices();
    return services != nullptr ? services->wake : -1;
}

bool hostStages()
{
    const HostServices* services = hostServices();
    return hasMember(services, &HostServices::keeps) && services->keeps != nullptr;
}

bool hostKeeps()
{
    if (!hostStages()) return true;
    const HostServices* services = hostServices();
    return services->keeps(services->context);
}

}  // namespace scansteps
