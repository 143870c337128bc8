// Merges the settings of the user over those of a recording.
#include "replay.h"

#include <fmt/format.h>

#include "scansteps/printable.h"
#include "scansteps/settings.h"
#include "setting_lookup.h"
#include "values.h"

namespace scansteps::host {

namespace {

Struct withoutFrameDescription(Struct settings)
{
    for (const char* key : {"dataX", "dataY", "dataFormat", "VideoFormat"}) settings.remove(key);
    return settings;
}

bool isStruct(const varitype* value)
{
    return value != nullptr && value->kind() == Kind::Struct && value->hasPayload();
}

std::string shown(const varitype& value)
{
    std::string text = printable(lineOf(value));
    if (text.size() > 100) text = text.substr(0, 100) + "...";
    return text;
}

bool isProtected(SettingRole role)
{
    return role == SettingRole::Output || role == SettingRole::Host || role == SettingRole::Port;
}

// The settings record that holds the last key of a path; null where there is none.
std::optional<varitype> groupOf(const varitype& record, std::string_view path)
{
    varitype group = record;
    for (std::size_t dot = path.find('.'); dot != path.npos; dot = path.find('.')) {
        if (!isStruct(group.as<Struct>().find(path.substr(0, dot)))) return std::nullopt;
        group = group[path.substr(0, dot)];
        path.remove_prefix(dot + 1);
    }
    return group;
}

// {"a": {"b": value}} for "a.b".
Struct nested(std::string_view path, const varitype& value)
{
    const std::size_t dot = path.find('.');
    Struct result;
    result.set(path.substr(0, dot), dot == path.npos ? value : varitype(nested(path.substr(dot + 1), value)));
    return result;
}

}  // namespace

void ReplayRules::warnOnce(const std::string& text)
{
    if (said_.insert(text).second) warn_(text);
}

// Merges --set and the settings of the steps up to the player again, as they were merged before it.
void ReplayRules::mergeUsers(std::size_t player, varitype& record)
{
    mergeSettings(record, withoutFrameDescription(pipeline_.sets));
    for (std::size_t i = 0; i <= player; ++i)
        mergeSettings(record, withoutFrameDescription(pipeline_.steps[i].settings));
}

// Warns of top-level settings that a recording overrides; `winners` are those that it does not.
void ReplayRules::compareTop(const Struct& given, const Struct& recorded, const Struct& winners,
                             const std::string& prefix)
{
    for (const auto& [key, value] : given) {
        const varitype *other = recorded.find(key), *winner = winners.find(key);
        if (other == nullptr || other->equals(value)) continue;
        if (isStruct(&value) && isStruct(other)) {
            static const Struct none;
            compareTop(value.as<Struct>(), other->as<Struct>(),
                       isStruct(winner) ? winner->as<Struct>() : none, prefix + key + ".");
        } else if (winner == nullptr) {
            warnOnce(fmt::format("{}{} = {} gives way to {} of the recording", prefix, key, shown(value),
                                 shown(*other)));
        }
    }
}

// Whether a step after the player reads a setting that the pipeline gives it nowhere.
bool ReplayRules::isMissed(std::size_t player, const char* path) const
{
    for (std::size_t i = player + 1; i < pipeline_.steps.size(); ++i)
        if (findSetting(*pipeline_.steps[i].info, path) != nullptr && !effectiveValue(pipeline_, i, path))
            return true;
    return false;
}

void ReplayRules::protect(std::size_t player, const SettingInfo& setting, const varitype& user,
                          varitype& record)
{
    const std::string_view path = setting.path;
    if (const auto given = findPath(user, path)) return mergeSettings(record, nested(path, given->clone()));
    auto group = groupOf(record, path);
    const std::string key = lastPart(path);
    if (!group || !group->has(key)) return;
    if (isMissed(player, setting.path))
        warnOnce(fmt::format("{} = {} of the recording is not used: {}", path, shown((*group)[key]),
                             setting.role == SettingRole::Unknown
                                 ? "its plug-in does not say what its texts name"
                                 : "only the user names what is written or sent to"));
    group->remove(key);
}

void ReplayRules::apply(std::size_t player, varitype& record)
{
    varitype winners{Struct()};
    mergeUsers(player, winners);
    varitype user{Struct(pipeline_.settings)};
    mergeSettings(user, winners.as<Struct>());

    mergeUsers(player, record);
    for (const StepInfo& info : stepTable())
        for (const SettingInfo& setting : info.settings)
            if (isProtected(setting.role)) protect(player, setting, user, record);
    for (std::size_t i = player + 1; i < pipeline_.steps.size(); ++i)
        for (const SettingInfo& setting : pipeline_.steps[i].info->settings)
            if (setting.role == SettingRole::Unknown) protect(player, setting, user, record);
    compareTop(pipeline_.settings, record.as<Struct>(), winners.as<Struct>(), "");
}

}  // namespace scansteps::host
