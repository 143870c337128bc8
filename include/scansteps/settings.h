// Settings of a step, read from the initialise record with the defaults of the table of kinds.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "scansteps/chain.h"
#include "scansteps/steps.h"

namespace scansteps {

/// Looks a path such as "OCV.trh" up. Null when a part of it is absent; throws "MustBe nsa " when a part
/// before the last is no struct.
std::optional<varitype> findPath(const varitype& params, std::string_view path);

/// Size of the frames to come, in pixels.
struct FrameSize
{
    int width = 0;
    int height = 0;
};

/// Reads settings. An absent optional key gives its default; an absent required one is "[%s] not found"; a
/// value of another kind is "varitype::getv() type error!"; one outside an enforced range is a text that
/// names it.
class Settings
{
  public:
    Settings(const StepInfo& kind, const varitype& params) : kind_(kind), params_(params) {}
    /// Settings of the step's class.
    Settings(cChain& step, const varitype& params);

    /// "dataX" and "dataY".
    FrameSize frameSize() const;
    int integer(std::string_view path) const;
    float real(std::string_view path) const;
    std::string text(std::string_view path) const;
    /// Presence of the key.
    bool has(std::string_view path) const { return findPath(params_, path).has_value(); }

  private:
    const SettingInfo& info(std::string_view path) const;
    std::optional<varitype> value(const SettingInfo& setting) const;
    void checkRange(const SettingInfo& setting, double value) const;

    const StepInfo& kind_;
    const varitype& params_;
};

}  // namespace scansteps
