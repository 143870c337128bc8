// Initialises steps again within a chain that runs: those alone for which something has changed.
#include <utility>

#include "chain_state.h"
#include "scansteps/settings.h"

namespace scansteps::host {

namespace {

constexpr const char* kFrameDescription[] = {"dataX", "dataY", "dataFormat", "VideoFormat"};

}  // namespace

// What an initialise event says to a step: its own settings, and what the frames are.
Struct Chain::State::settingsOf(std::size_t step, const varitype& init) const
{
    Struct result;
    const auto take = [&](const char* path) {
        if (const auto value = findPath(init, path)) result.set(path, *value);
    };
    for (const char* path : kFrameDescription) take(path);
    for (const SettingInfo& setting : pipeline.steps[step].info->settings) take(setting.path);
    return result;
}

// Initialises one step and returns what it forwards.
varitype Chain::State::initialiseAlone(std::size_t step, const varitype& init)
{
    Catcher catcher;
    cChain* const next = steps[step]->next;
    steps[step]->setNext(&catcher);
    varitype record = init.clone();
    current = step;
    try {
        steps[step]->dispatch(record);
    } catch (...) {
        steps[step]->setNext(next);
        throw;
    }
    steps[step]->setNext(next);
    if (eventType(record) == event::kMismatch || typeOf(catcher.caught) == event::kMismatch)
        noteMismatch(step);
    return std::move(catcher.caught);
}

void Chain::State::update()
{
    varitype changes{Struct()};  // to what arrives at the next step
    for (std::size_t i = 0; i < steps.size() && !mismatch; ++i) {
        if (typeOf(initialised[i]) != event::kInit) continue;  // an event that never came so far
        mergeSettings(arrived[i], changes.as<Struct>());
        varitype init = arrived[i].clone();
        mergeSettings(init, pipeline.steps[i].settings);
        const bool isNew = !varitype(settingsOf(i, init)).equals(varitype(settingsOf(i, initialised[i])));
        initialised[i] = init;
        mergeSettings(changes, pipeline.steps[i].settings);
        if (!isNew) continue;
        if (hooks.observe) hooks.observe(i, init);
        const varitype forwarded = initialiseAlone(i, init);
        if (i + 1 == steps.size()) {
            if (hooks.observe) hooks.observe(steps.size(), forwarded);
            continue;
        }
        for (const char* path : kFrameDescription) {
            const varitype* value = forwarded.as<Struct>().find(path);
            changes.remove(path);
            if (value != nullptr)
                changes.set(path, value->clone());
            else
                arrived[i + 1].remove(path);
        }
    }
}

}  // namespace scansteps::host
