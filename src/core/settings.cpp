// Look-up of settings by path, with the defaults and range checks of the table of steps.
#include "scansteps/settings.h"

#include "scansteps/error.h"

namespace scansteps {

namespace {

const StepInfo& infoOfClass(const char* className)
{
    const StepInfo* info = findStepByClass(className);
    if (info == nullptr) failf("%s is not in the table of steps", className);
    return *info;
}

}  // namespace

std::optional<varitype> findPath(const varitype& params, std::string_view path)
{
    varitype at = params;
    for (;;) {
        const std::size_t dot = path.find('.');
        const std::string_view key = path.substr(0, dot);
        if (!at.has(key)) return std::nullopt;
        at = at[key];
        if (dot == std::string_view::npos) return at;
        path.remove_prefix(dot + 1);
    }
}

Settings::Settings(cChain& step, const varitype& params) : Settings(infoOfClass(step.getName()), params) {}

const SettingInfo& Settings::info(std::string_view path) const
{
    const SettingInfo* setting = findSetting(step_, path);
    if (setting == nullptr) failf("%s has no setting %.*s", step_.className, int(path.size()), path.data());
    return *setting;
}

std::optional<varitype> Settings::value(const SettingInfo& setting) const
{
    if (!setting.required) return findPath(params_, setting.path);
    // operator[] names the first absent part in its error.
    varitype at = params_;
    for (std::string_view rest = setting.path;;) {
        const std::size_t dot = rest.find('.');
        at = at[rest.substr(0, dot)];
        if (dot == std::string_view::npos) return at;
        rest.remove_prefix(dot + 1);
    }
}

void Settings::checkRange(const SettingInfo& setting, double value) const
{
    if (setting.enforced && !(value >= setting.min && value <= setting.max))
        failf("%s: %s = %.*g, must be %g to %g", step_.className, setting.path,
              setting.kind == Kind::Int ? 10 : 6, value, setting.min, setting.max);
}

FrameSize Settings::frameSize() const
{
    const int width = integer("dataX");  // read first, so that it is the one reported when both are missing
    return {width, integer("dataY")};
}

int Settings::integer(std::string_view path) const
{
    const SettingInfo& setting = info(path);
    const auto found = value(setting);
    const int result = found ? found->as<std::int32_t>() : static_cast<int>(setting.number);
    checkRange(setting, result);
    return result;
}

float Settings::real(std::string_view path) const
{
    const SettingInfo& setting = info(path);
    const auto found = value(setting);
    const float result = found ? found->as<float>() : static_cast<float>(setting.number);
    checkRange(setting, double{result});
    return result;
}

std::string Settings::text(std::string_view path) const
{
    const SettingInfo& setting = info(path);
    const auto found = value(setting);
    if (found) return found->as<std::string>();
    return setting.text != nullptr ? setting.text : "";
}

}  // namespace scansteps
