// Reads messages of the page; every number is checked for its range.
#include "messages.h"

#include <nlohmann/json.hpp>

#include <array>
#include <cmath>
#include <stdexcept>
#include <utility>

namespace scansteps::viewer {

namespace {

using Json = nlohmann::json;

[[noreturn]] void refuse(const char* what)
{
    throw std::runtime_error(what);
}

std::int64_t integer(const Json& json, const char* key, std::int64_t min, std::int64_t max,
                     std::int64_t fallback)
{
    const auto found = json.find(key);
    if (found == json.end()) return fallback;
    if (!found->is_number()) refuse("a number was expected");
    const double number = found->get<double>();
    if (!(number >= double(min) && number <= double(max))) refuse("a number is out of range");
    return static_cast<std::int64_t>(number);
}

constexpr std::int64_t kMaxSteps = 100000, kMaxPixels = 1 << 20, kMaxNumber = std::int64_t{1} << 53;

std::string text(const Json& json, const char* key)
{
    const auto found = json.find(key);
    if (found == json.end() || !found->is_string()) refuse("a text was expected");
    return found->get<std::string>();
}

bool flag(const Json& json, const char* key)
{
    const auto found = json.find(key);
    return found != json.end() && found->is_boolean() && found->get<bool>();
}

template <class Value, std::size_t count>
Value named(const std::array<std::pair<const char*, Value>, count>& names, const std::string& name)
{
    for (const auto& [known, value] : names)
        if (name == known) return value;
    refuse("no such request");
}

void readNumbers(const Json& json, const char* key, std::size_t count, std::vector<double>& to)
{
    const auto found = json.find(key);
    if (found == json.end()) return;
    if (!found->is_array() || found->size() != count) refuse("a list of numbers was expected");
    for (const Json& number : *found) {
        if (!number.is_number() || !std::isfinite(number.get<double>())) refuse("a number was expected");
        to.push_back(number.get<double>());
    }
}

Rect rectOf(const std::vector<double>& numbers)
{
    std::array<std::int64_t, 4> whole{};
    for (std::size_t i = 0; i < numbers.size(); ++i) {
        if (std::abs(numbers[i]) > double(kMaxPixels)) refuse("a number is out of range");
        whole[i] = static_cast<std::int64_t>(std::floor(numbers[i]));
    }
    return {whole[0], whole[1], whole[2], whole[3]};
}

Request requestOf(const Json& json)
{
    using What = Request::What;
    static constexpr std::array<std::pair<const char*, What>, 6> kNames{{{"status", What::Status},
                                                                         {"picture", What::Picture},
                                                                         {"overlays", What::Overlays},
                                                                         {"record", What::Record},
                                                                         {"value", What::Value},
                                                                         {"model", What::Model}}};
    Request request;
    request.what = named(kNames, text(json, "get"));
    request.slot = text(json, "slot");
    if (request.slot.empty() || request.slot.size() > 32) refuse("a slot has a short name");
    request.step = std::size_t(integer(json, "step", 0, kMaxSteps, 0));
    request.tuned = flag(json, "tuned");
    request.after = std::uint64_t(integer(json, "after", 0, kMaxNumber, 0));
    std::vector<double> numbers;
    readNumbers(json, "region", 4, numbers);
    request.region = rectOf(numbers);
    request.width = int(integer(json, "width", 1, 8192, 512));
    request.height = int(integer(json, "height", 1, 8192, 512));
    request.exact = flag(json, "exact");
    request.histogram = flag(json, "histogram");
    numbers.clear();
    readNumbers(json, "window", 2, numbers);
    if (!numbers.empty()) request.window = {numbers[0], numbers[1]};
    if (const auto path = json.find("path"); path != json.end()) {
        if (!path->is_array() || path->size() > 64) refuse("a path is a list");
        for (const Json& key : *path) {
            if (!key.is_string()) refuse("a path is a list of texts");
            request.path.push_back(key.get<std::string>());
        }
    }
    request.first = std::uint64_t(integer(json, "first", 0, kMaxNumber, 0));
    request.x = integer(json, "x", -1, kMaxPixels, -1);
    request.y = integer(json, "y", -1, kMaxPixels, -1);
    return request;
}

SetSetting settingOf(const Json& json)
{
    SetSetting set;
    set.step = std::size_t(integer(json, "step", 0, kMaxSteps, 0));
    set.path = text(json, "set");
    const auto value = json.find("value");
    if (value == json.end() || value->is_null()) return set;
    if (value->is_string())
        set.value = value->get<std::string>();
    else if (value->is_number())
        set.value = value->dump();
    else
        refuse("a value is a number or a text");
    return set;
}

Action actionOf(const Json& json)
{
    using What = Action::What;
    static constexpr std::array<std::pair<const char*, What>, 8> kNames{{{"run", What::Run},
                                                                         {"pause", What::Pause},
                                                                         {"step", What::Step},
                                                                         {"apply", What::Apply},
                                                                         {"discard", What::Discard},
                                                                         {"hold", What::Hold},
                                                                         {"seek", What::Seek},
                                                                         {"export", What::Export}}};
    return {named(kNames, text(json, "do")), integer(json, "number", 0, kMaxNumber, 0)};
}

}  // namespace

Message parseMessage(std::string_view bytes)
{
    if (bytes.size() > kMaxMessage) refuse("the message is too long");
    const Json json = Json::parse(bytes, nullptr, false);
    if (!json.is_object()) refuse("a message is a JSON object");
    if (json.contains("get")) return requestOf(json);
    if (json.contains("set")) return settingOf(json);
    if (json.contains("do")) return actionOf(json);
    refuse("the message asks for nothing");
}

}  // namespace scansteps::viewer
