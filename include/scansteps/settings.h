// Reads the settings of a step from the initialise record, with the defaults and ranges of the table of
// steps.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "scansteps/chain.h"
#include "scansteps/steps.h"

namespace scansteps {

/// Looks up a path such as "OCV.trh". Returns nothing when a part of it is absent; throws "MustBe nsa " when
/// a part before the last is not a struct.
std::optional<varitype> findPath(const varitype& params, std::string_view path);

/// Size of the frames that follow, in pixels.
struct FrameSize
{
    int width = 0;
    int height = 0;
};

/// Reads settings. An absent optional key gives the default. Throws "[%s] not found" for an absent required
/// key, "varitype::getv() type error!" for a value of another kind, and a text that names step, setting and
/// range for a value outside an enforced range.
class Settings
{
  public:
    Settings(const StepInfo& step, const varitype& params) : step_(step), params_(params) {}
    /// Looks the step up in the table by its class name.
    Settings(cChain& step, const varitype& params);

    /// "dataX" and "dataY".
    FrameSize frameSize() const;
    int integer(std::string_view path) const;
    float real(std::string_view path) const;
    std::string text(std::string_view path) const;
    /// Whether the key is present.
    bool has(std::string_view path) const { return findPath(params_, path).has_value(); }

  private:
    const SettingInfo& info(std::string_view path) const;
    std::optional<varitype> value(const SettingInfo& setting) const;
    void checkRange(const SettingInfo& setting, double value) const;

    const StepInfo& step_;
    const varitype& params_;
};

}  // namespace scansteps
