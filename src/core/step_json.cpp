// The table of steps as JSON. Plug-ins write it too, so it takes no JSON library.
#include <charconv>
#include <cmath>
#include <cstdint>
#include <string_view>

#include "scansteps/plugin.h"

namespace scansteps {

namespace {

std::string quoted(std::string_view text)
{
    std::string json = "\"";
    for (const char c : text) {
        const auto code = static_cast<unsigned char>(c);
        if (c == '"' || c == '\\') json += '\\';
        if (code >= 0x20) {
            json += c;
            continue;
        }
        constexpr char kDigits[] = "0123456789abcdef";
        json += "\\u00";
        json += kDigits[code >> 4U];
        json += kDigits[code & 15U];
    }
    return json + '"';
}

template <class Number>
std::string digits(Number value)
{
    char text[32];
    return {text, std::to_chars(text, text + sizeof text, value).ptr};
}

// A number of the setting's kind: a float always has a fraction or an exponent.
std::string number(const SettingInfo& setting, double value)
{
    if (setting.kind == Kind::Int) return digits(static_cast<std::int64_t>(value));
    const std::string text = digits(value);
    return text.find_first_of(".e") == text.npos ? text + ".0" : text;
}

// The members of an object; "{...}" once it is a string.
class Object
{
  public:
    Object& raw(const char* key, const std::string& json)
    {
        text_ += (text_.empty() ? "{" : ", ") + quoted(key) + ": " + json;
        return *this;
    }
    Object& add(const char* key, const char* value) { return raw(key, quoted(value)); }
    Object& add(const char* key, bool value) { return raw(key, value ? "true" : "false"); }
    /// Left out when empty or false.
    template <class Value>
    Object& addSet(const char* key, Value value)
    {
        if constexpr (std::is_same_v<Value, bool>)
            return value ? add(key, true) : *this;
        else
            return *value != 0 ? add(key, value) : *this;
    }
    std::string str() const { return text_ + "}"; }

  private:
    std::string text_;
};

template <class Items, class Write>
std::string array(const Items& items, Write write)
{
    std::string text;
    for (const auto& item : items) text += (text.empty() ? "[" : ", ") + write(item);
    return text.empty() ? "[]" : text + "]";
}

std::string settingJson(const SettingInfo& setting)
{
    Object json;
    json.add("path", setting.path).add("kind", kindTypeName(setting.kind));
    if (setting.kind == Kind::String && setting.hasDefault())
        json.add("default", setting.text != nullptr ? setting.text : "");
    else if (setting.hasDefault())
        json.raw("default", number(setting, setting.number));
    json.add("required", setting.required).addSet("presence", setting.presence);
    if (std::isfinite(setting.min)) json.raw("min", number(setting, setting.min));
    if (std::isfinite(setting.max)) json.raw("max", number(setting, setting.max));
    json.addSet("enforced", setting.enforced).addSet("unit", setting.unitName);
    constexpr const char* kRoles[] = {"", "input", "output", "host", "port", ""};
    json.addSet("role", kRoles[static_cast<std::size_t>(setting.role)]);
    json.addSet("counted", setting.counted)
        .addSet("pattern", setting.pattern)
        .addSet("endings", setting.endings);
    return json.add("doc", setting.doc).str();
}

std::string stepJson(const StepInfo& info)
{
    const FrameFlow& flow = info.frames;
    Object frames;
    frames.add("in", pixelsName(flow.in)).add("out", pixelsName(flow.out));
    frames.addSet("addsData", flow.addsData).addSet("refusesData", flow.refusesData);
    Object json;
    json.add("kind", info.kind).add("class", info.className);
    json.add("typeIn", info.typeIn).add("typeOut", info.typeOut);
    json.add("source", info.source).addSet("player", info.player).add("summary", info.summary);
    json.raw("frames", frames.str()).add("stateless", flow.isStateless);
    return json.raw("settings", array(info.settings, settingJson)).str();
}

}  // namespace

std::string stepsJson(std::span<const StepInfo> steps)
{
    return array(steps, stepJson);
}

std::string pluginJson(const char* plugin, const char* version, std::span<const StepInfo> steps)
{
    Object json;
    json.raw("interface", digits(kPluginInterface)).add("plugin", plugin).add("version", version);
    return json.raw("steps", stepsJson(steps)).str();
}

}  // namespace scansteps
