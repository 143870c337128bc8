// The table of steps: those of the step library, built from the steps.def of every module, and those that
// plug-ins add. It is part of the core so that hosts can use it without the step library.
#include <algorithm>
#include <atomic>
#include <list>
#include <mutex>
#include <vector>

#include "scansteps/plugin.h"
#include "scansteps/step_definitions.h"

namespace scansteps {

namespace {

using namespace definitions;

#define SCANSTEPS_SETTINGS SCANSTEPS_SETTINGS_ARRAY
#define SCANSTEPS_STEP SCANSTEPS_STEP_ARRAY
#include "core/steps.def"

constexpr StepInfo kUnsorted[] = {
#define SCANSTEPS_STEP SCANSTEPS_STEP_ENTRY
#include "core/steps.def"
};

constexpr auto byKind = [](const StepInfo& info) { return std::string_view(info.kind); };

constexpr auto kTable = [] {
    auto table = std::to_array(kUnsorted);
    std::ranges::sort(table, {}, byKind);
    return table;
}();

// Tables are replaced, never changed: those handed out before stay valid.
struct Extended
{
    std::vector<StepInfo> all, added;
};
std::atomic<const Extended*> extended = nullptr;

}  // namespace

std::span<const StepInfo> stepTable()
{
    const Extended* table = extended;
    if (table == nullptr) return kTable;
    return table->all;
}

void addSteps(std::span<const StepInfo> steps)
{
    static std::mutex mutex;
    static auto& tables = *new std::list<Extended>;  // never destroyed
    const std::lock_guard lock(mutex);
    const Extended* before = extended;
    const auto now = stepTable();
    Extended table{{now.begin(), now.end()}, {}};
    if (before != nullptr) table.added = before->added;
    table.all.insert(table.all.end(), steps.begin(), steps.end());
    table.added.insert(table.added.end(), steps.begin(), steps.end());
    std::ranges::stable_sort(table.all, {}, byKind);
    tables.push_back(std::move(table));
    extended = &tables.back();
}

const StepInfo* findStep(std::string_view kind)
{
    for (const StepInfo& info : stepTable())
        if (info.kind == kind) return &info;
    return nullptr;
}

const StepInfo* findStepByClass(std::string_view className)
{
    // A plug-in means its own class, also where the step library has one of the same name.
    if (const Extended* table = extended)
        for (const StepInfo& info : table->added)
            if (info.className == className) return &info;
    for (const StepInfo& info : kTable)
        if (info.className == className) return &info;
    return nullptr;
}

const char* pixelsName(Pixels pixels)
{
    constexpr const char* kNames[] = {"any",    "none",     "same",      "rgb8",
                                      "yuyv16", "offset16", "samples16", "float"};
    return kNames[static_cast<std::size_t>(pixels)];
}

const SettingInfo* findSetting(const StepInfo& step, std::string_view path)
{
    for (const SettingInfo& info : step.settings)
        if (info.path == path) return &info;
    return nullptr;
}

}  // namespace scansteps
