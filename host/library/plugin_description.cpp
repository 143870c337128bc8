// See plugin_description.h.
#include "plugin_description.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <span>

#include "json_values.h"
#include "scansteps/plugin.h"
#include "usage_hints.h"

namespace scansteps::host {

namespace {

[[noreturn]] void failAt(const std::string& where, const std::string& what)
{
    throw FileError{where + ": " + what};
}

Json parse(std::string_view text)
{
    if (text.size() > kMaxDescription) throw FileError{"the description is too long"};
    constexpr int kMaxDepth = 16;
    const auto checkDepth = [](int depth, Json::parse_event_t, Json&) {
        if (depth > kMaxDepth) throw FileError{"the description is nested too deeply"};
        return true;
    };
    try {
        return Json::parse(text, checkDepth);
    } catch (const Json::exception& error) {
        throw FileError{fmt::format("the description is no JSON: {}", error.what())};
    }
}

// One object of the description and its place in messages.
class Reader
{
  public:
    Reader(const Json& json, std::string where, std::deque<std::string>& texts)
        : json_(json), where_(std::move(where)), texts_(texts)
    {
        if (!json.is_object()) fail("is no object");
    }
    [[noreturn]] void fail(const std::string& what) const { failAt(where_, what); }
    const Json* find(const char* key) const
    {
        const auto found = json_.find(key);
        return found == json_.end() ? nullptr : &*found;
    }
    const Json& get(const char* key) const
    {
        const Json* value = find(key);
        if (value == nullptr) fail(fmt::format("\"{}\" is missing", key));
        return *value;
    }
    const Json& list(const char* key) const
    {
        const Json& value = get(key);
        if (!value.is_array()) fail(fmt::format("\"{}\" is no array", key));
        return value;
    }
    const char* text(const char* key) const
    {
        const Json& value = get(key);
        if (!value.is_string()) fail(fmt::format("\"{}\" is no text", key));
        return texts_.emplace_back(value.get<std::string>()).c_str();
    }
    const char* text(const char* key, const char* otherwise) const
    {
        return find(key) == nullptr ? otherwise : text(key);
    }
    bool flag(const char* key) const
    {
        const Json* value = find(key);
        if (value == nullptr) return false;
        if (!value->is_boolean()) fail(fmt::format("\"{}\" is not true or false", key));
        return value->get<bool>();
    }
    /// A finite number; of kind Int a whole one of at most `most`.
    double number(const char* key, Kind kind, double most) const
    {
        const Json& value = get(key);
        if (!value.is_number()) fail(fmt::format("\"{}\" is no number", key));
        const auto number = value.get<double>();
        if (!std::isfinite(number) ||
            (kind == Kind::Int && (number != std::trunc(number) || std::abs(number) > most)))
            fail(fmt::format("\"{}\" = {} is out of range", key, value.dump()));
        return number;
    }
    /// Index of the text among the words; `otherwise` when it is missing.
    std::size_t word(const char* key, std::span<const char* const> words, std::size_t otherwise) const
    {
        if (find(key) == nullptr) return otherwise;
        const std::string_view value = text(key);
        const auto found = std::ranges::find(words, value);
        if (found == words.end()) fail(fmt::format("\"{}\" is {}, which is not known", key, inQuotes(value)));
        return std::size_t(found - words.begin());
    }

  private:
    const Json& json_;
    std::string where_;
    std::deque<std::string>& texts_;
};

bool isName(std::string_view name)
{
    const auto isLetter = [](char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); };
    const auto isOther = [&](char c) { return isLetter(c) || (c >= '0' && c <= '9') || c == '_'; };
    return !name.empty() && name.size() <= 64 && isLetter(name[0]) && std::ranges::all_of(name, isOther);
}

bool isPath(std::string_view path)
{
    return !path.empty() && path.size() <= 256 && path.front() != '.' && path.back() != '.' &&
           path.find("..") == path.npos;
}

// Roles in the order of SettingRole.
constexpr const char* kRoles[] = {"", "input", "output", "host", "port"};

SettingInfo readSetting(const Reader& in)
{
    constexpr Kind kKinds[] = {Kind::Int, Kind::Float, Kind::String};
    constexpr const char* kNames[] = {"Int", "Float", "String"};
    SettingInfo info;
    info.path = in.text("path");
    if (!isPath(info.path)) in.fail(fmt::format("{} is no path of a setting", inQuotes(info.path)));
    in.get("kind");
    info.kind = kKinds[in.word("kind", kNames, 0)];
    info.required = in.flag("required");
    info.presence = in.flag("presence");
    info.enforced = in.flag("enforced");
    info.counted = in.flag("counted");
    info.pattern = in.flag("pattern");
    if (info.kind == Kind::String)
        info.text = in.text("default", info.required ? nullptr : "");
    else if (in.find("default") != nullptr)
        info.number = in.number("default", info.kind, std::numeric_limits<std::int32_t>::max());
    constexpr double kExact = 9007199254740992;  // 2^53
    if (in.find("min") != nullptr) info.min = in.number("min", info.kind, kExact);
    if (in.find("max") != nullptr) info.max = in.number("max", info.kind, kExact);
    info.role = SettingRole(in.word("role", kRoles, 0));
    const bool namesFile = info.role == SettingRole::Input || info.role == SettingRole::Output;
    if (namesFile && info.kind != Kind::String) in.fail("names a file, and is no text");
    info.endings = in.text("endings", "");
    info.unitName = in.text("unit", "");
    info.doc = in.text("doc", "");
    return info;
}

Pixels readPixels(const Reader& in, const char* key, Pixels otherwise)
{
    std::array<const char*, std::size_t(Pixels::Float) + 1> names;
    for (std::size_t i = 0; i < names.size(); ++i) names[i] = pixelsName(Pixels(i));
    return Pixels(in.word(key, names, std::size_t(otherwise)));
}

StepInfo readStep(const Reader& in, PluginDescription& all)
{
    StepInfo info;
    info.kind = in.text("kind");
    if (!isName(info.kind)) in.fail(fmt::format("{} is no name of a kind", inQuotes(info.kind)));
    for (const StepInfo& other : all.steps)
        if (std::string_view(other.kind) == info.kind)
            in.fail(fmt::format("the kind \"{}\" stands there twice", info.kind));
    const std::string where = info.kind;
    info.className = in.text("class");
    info.typeIn = in.text("typeIn");
    info.typeOut = in.text("typeOut");
    info.player = in.flag("player");
    info.source = in.flag("source") || info.player;
    info.summary = in.text("summary", "");
    if (const Json* frames = in.find("frames")) {
        const Reader flow(*frames, where + ": frames", all.texts);
        info.frames.in = readPixels(flow, "in", info.frames.in);
        info.frames.out = readPixels(flow, "out", info.frames.out);
        info.frames.addsData = flow.flag("addsData");
        info.frames.refusesData = flow.flag("refusesData");
    }
    info.frames.isStateless = in.flag("stateless");
    std::vector<SettingInfo>& settings = all.settings.emplace_back();
    for (const Json& setting : in.list("settings"))
        settings.push_back(
            readSetting({setting, fmt::format("{}: setting {}", where, settings.size() + 1), all.texts}));
    info.settings = settings;
    return info;
}

// Without roles every text may name a file or a peer, except those that describe frames.
void protectTexts(PluginDescription& all)
{
    for (const auto& settings : all.settings)
        for (const SettingInfo& setting : settings)
            if (setting.role != SettingRole::None) return;
    for (auto& settings : all.settings)
        for (SettingInfo& setting : settings)
            if (setting.kind == Kind::String && std::string_view(setting.path) != "dataFormat")
                setting.role = SettingRole::Unknown;
}

}  // namespace

PluginDescription readDescription(std::string_view text)
{
    const Json json = parse(text);
    PluginDescription all;
    const Reader in(json, "the description", all.texts);
    const Json& interface = in.get("interface");
    if (interface != kPluginInterface)
        in.fail(fmt::format("its interface number is {}, this host has {}: build the plug-in anew",
                            dumpLine(interface), kPluginInterface));
    all.name = in.text("plugin");
    all.version = in.text("version", "");
    for (const Json& step : in.list("steps"))
        all.steps.push_back(readStep({step, fmt::format("step {}", all.steps.size() + 1), all.texts}, all));
    protectTexts(all);
    return all;
}

}  // namespace scansteps::host
