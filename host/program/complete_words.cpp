// See complete_words.h. Everything comes from the table of steps, files and cameras from the system.
#include "complete_words.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <filesystem>

#include "library/platform.h"
#include "library/setting_lookup.h"
#include "scansteps/cameras.h"

namespace scansteps::host {

namespace {

using Continuations = std::vector<Continuation>;
using Settings = std::vector<const SettingInfo*>;

// Keeps what begins with `begun` and puts `head` before it.
Continuations like(std::string_view begun, Continuations all, std::string_view head = "")
{
    std::erase_if(all, [&](const Continuation& one) { return !one.word.starts_with(begun); });
    for (Continuation& one : all) one.word.insert(0, head);
    return all;
}

// Names of files and folders; those with blanks in quotes, unless one is open already.
Continuations filesLike(std::string_view begun)
{
    const char quote = begun.starts_with('\'') || begun.starts_with('"') ? begun.front() : '\0';
    if (quote != 0) begun.remove_prefix(1);
    const std::size_t slash = begun.rfind('/');
    const std::string folder(begun.substr(0, slash == std::string_view::npos ? 0 : slash + 1));
    const std::string_view name = begun.substr(folder.size());
    Continuations files;
    std::error_code error;
    for (std::filesystem::directory_iterator at(pathFromUtf8(folder.empty() ? "." : folder), error), end;
         !error && at != end; at.increment(error)) {
        const std::string found = utf8FromPath(at->path().filename());
        if (!found.starts_with(name) || (found.starts_with('.') && name.empty())) continue;
        std::error_code unknown;
        std::string word = folder + found + (at->is_directory(unknown) ? "/" : "");
        if (quote != 0)
            word.insert(0, 1, quote);
        else if (word.find(' ') != std::string::npos)
            word = "'" + word + (word.ends_with('/') ? "" : "'");
        files.push_back({std::move(word), ""});
    }
    std::ranges::sort(files, {}, &Continuation::word);
    return files;
}

Continuations cameras()
{
    Continuations all = {{"test:moving", "no camera: a moving pattern"},
                         {"test:bars", "no camera: colour bars"},
                         {"test:gradient", "no camera: a gradient"}};
    for (const CameraInfo& camera : listCameras())
        if (!camera.path.empty()) all.push_back({camera.path, camera.name});
    return all;
}

void addOnce(Continuations& all, const std::string& word, const char* what)
{
    if (std::ranges::find(all, word, &Continuation::word) == all.end()) all.push_back({word, what});
}

Continuations numbers(const SettingInfo& setting)
{
    constexpr double kFew = 8;
    const auto text = [&](double number) {
        return setting.kind == Kind::Int ? fmt::format("{}", std::int64_t(number))
                                         : fmt::format("{:.6g}", number);
    };
    Continuations all;
    const bool bounded = std::isfinite(setting.min) && std::isfinite(setting.max);
    if (setting.hasDefault()) addOnce(all, text(setting.number), "default");
    const bool isSwitch = setting.kind == Kind::Int && std::string_view(setting.doc).starts_with("not 0:");
    if (isSwitch || (bounded && setting.kind == Kind::Int && setting.max - setting.min <= kFew))
        for (double value = isSwitch ? 0 : setting.min; value <= (isSwitch ? 1 : setting.max); ++value)
            addOnce(all, text(value), "");
    if (std::isfinite(setting.min)) addOnce(all, text(setting.min), "smallest");
    if (std::isfinite(setting.max)) addOnce(all, text(setting.max), "largest");
    return all;
}

Continuations valuesLike(const SettingInfo& setting, std::string_view begun)
{
    using enum SettingRole;
    if (setting.role == Input || setting.role == Output) return filesLike(begun);
    if (setting.presence) return like(begun, {{"true", "present"}});
    const std::string_view path = setting.path;
    if (path == "capture.dev_name") return like(begun, cameras());
    if (path == "dataFormat")
        return like(
            begun,
            {{"CPU::u_1x8", "8-bit RGB"}, {"CPU::u_1x16", "16-bit samples"}, {"CPU::f_1x32", "float"}});
    if (setting.kind != Kind::String) return like(begun, numbers(setting));
    return *setting.text == 0 ? Continuations{} : like(begun, {{setting.text, "default"}});
}

std::string explanation(const SettingInfo& setting)
{
    return setting.doc + std::string(setting.required ? " (required)" : "");
}

// A setting by its path or, where `families` is false, also by its last part alone.
Continuations settingsLike(const Settings& settings, std::string_view begun, bool families)
{
    const std::size_t equals = begun.find('=');
    const std::string_view name = begun.substr(0, equals);
    if (equals != std::string_view::npos) {
        for (const SettingInfo* setting : settings)
            if (setting->path == name || (!families && lastPart(setting->path) == name)) {
                Continuations values = valuesLike(*setting, begun.substr(equals + 1));
                for (Continuation& value : values) value.word.insert(0, begun.substr(0, equals + 1));
                return values;
            }
        return {};
    }
    Continuations full, brief;
    for (const SettingInfo* setting : settings) {
        full.push_back({std::string(setting->path) + "=", explanation(*setting)});
        brief.push_back({lastPart(setting->path) + "=", explanation(*setting)});
    }
    if (families) return like(begun, full);
    // The short form means something only where no other setting of the step has it.
    const Continuations all = brief;
    std::erase_if(brief, [&](const Continuation& one) {
        return std::ranges::count(all, one.word, &Continuation::word) > 1;
    });
    Continuations found = like(begun, brief);
    return found.empty() ? like(begun, full) : found;
}

Settings settingsOf(const StepInfo& step)
{
    Settings settings;
    for (const SettingInfo& setting : step.settings) settings.push_back(&setting);
    return settings;
}

// How far a one-line pipeline has been written.
struct Unfinished
{
    std::size_t start = 0;           // of the last word
    std::vector<std::string> kinds;  // of the steps, the last one included when it is followed by a blank
    bool wantsKind = true;           // the last word is a kind
    std::vector<std::string> given;  // settings of the last step so far
};

Unfinished scan(std::string_view text)
{
    Unfinished at;
    char quote = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (quote != 0) {
            if (c == quote) quote = 0;
        } else if (c == '"' || c == '\'') {
            quote = c;
        } else if (c == ' ' || c == '\t') {
            const std::string word(text.substr(at.start, i - at.start));
            at.start = i + 1;
            if (word == "!") {
                at.wantsKind = true;
            } else if (!word.empty() && at.wantsKind) {
                at.kinds.push_back(word);
                at.wantsKind = false;
                at.given.clear();
            } else if (!word.empty()) {
                at.given.push_back(word.substr(0, word.find('=')));
            }
        }
    }
    return at;
}

}  // namespace

Continuations kindsLike(std::string_view begun)
{
    Continuations kinds;
    for (const StepInfo& info : stepTable()) kinds.push_back({info.kind, info.summary});
    return like(begun, kinds);
}

Continuations pipelinesLike(std::string_view begun)
{
    const Unfinished at = scan(begun);
    const std::string_view head = begun.substr(0, at.start), last = begun.substr(at.start);
    Continuations found;
    if (at.wantsKind) {
        found = kindsLike(last);
    } else if (const StepInfo* step = findStep(at.kinds.back())) {
        Settings settings = settingsOf(*step);
        std::erase_if(settings, [&](const SettingInfo* setting) {
            return std::ranges::find(at.given, setting->path) != at.given.end() ||
                   std::ranges::find(at.given, lastPart(setting->path)) != at.given.end();
        });
        found = settingsLike(settings, last, false);
    }
    if (!at.wantsKind && last.empty()) found.push_back({"! ", "the next step"});
    return like("", found, head);
}

Continuations assignmentsLike(std::string_view begun, std::string_view pipeline)
{
    Settings settings;
    for (const std::string& kind : scan(std::string(pipeline) + " ").kinds)
        if (const StepInfo* step = findStep(kind))
            std::ranges::copy(settingsOf(*step), std::back_inserter(settings));
    if (settings.empty())
        for (const StepInfo& step : stepTable())
            std::ranges::copy(settingsOf(step), std::back_inserter(settings));
    Continuations found = settingsLike(settings, begun, true);
    std::ranges::stable_sort(found, {}, &Continuation::word);
    const auto sameWord = [](const Continuation& a, const Continuation& b) { return a.word == b.word; };
    found.erase(std::unique(found.begin(), found.end(), sameWord), found.end());
    return found;
}

}  // namespace scansteps::host
