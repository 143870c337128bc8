// The table of kinds: what every step is called, takes, gives and can be set to. Declared once; the exported
// functions, the settings that steps read, `scansteps steps`, the settings check, the JSON schema and the
// reference page are made from it.
#pragma once

#include <limits>
#include <span>
#include <string_view>

#include "scansteps/array.h"

namespace scansteps {

/// One setting of a step: a key of the initialise record, or one inside a nested record of its family.
struct SettingInfo
{
    const char* path = "";  ///< "OCV.trh", or "dataX" at the top level
    Kind kind = Kind::Empty;
    bool required = false;
    bool presence = false;       ///< only the presence of the key counts; its kind and value do not
    double number = 0;           ///< default of a number
    const char* text = nullptr;  ///< default of a string
    double min = -std::numeric_limits<double>::infinity();
    double max = std::numeric_limits<double>::infinity();
    bool enforced =
        false;  ///< values outside min ... max are refused before a run; else the step has its own word
    bool writesFile = false;   ///< the value names a file that the step writes
    const char* endings = "";  ///< of which the file's name holds one, or nothing is written; empty: any name
    const char* unitName = "";
    const char* doc = "";

    constexpr bool hasDefault() const { return !required && !presence; }
    /// Refuses values outside low ... high.
    constexpr SettingInfo range(double low, double high) const
    {
        SettingInfo copy = hint(low, high);
        copy.enforced = true;
        return copy;
    }
    /// Values that make sense; what happens outside them is the step's own business.
    constexpr SettingInfo hint(double low, double high) const
    {
        SettingInfo copy = *this;
        copy.min = low;
        copy.max = high;
        return copy;
    }
    /// `allowed` endings have blanks between them.
    constexpr SettingInfo writes(const char* allowed = "") const
    {
        SettingInfo copy = *this;
        copy.writesFile = true;
        copy.endings = allowed;
        return copy;
    }
    constexpr SettingInfo unit(const char* name) const
    {
        SettingInfo copy = *this;
        copy.unitName = name;
        return copy;
    }
};

struct KindInfo
{
    const char* kind = "";       ///< export suffix, such as "ccanny"
    const char* className = "";  ///< what getName() returns, such as "CpuCanny"
    const char* typeIn = "";
    const char* typeOut = "";
    bool source = false;  ///< makes frames of its own: the host sends it no "handle"
    const char* summary = "";
    std::span<const SettingInfo> settings;
};

/// All kinds, in alphabetical order.
std::span<const KindInfo> kinds();
/// Null when there is no such kind.
const KindInfo* findKind(std::string_view kind);
const KindInfo* findKindByClass(std::string_view className);
const SettingInfo* findSetting(const KindInfo& kind, std::string_view path);

}  // namespace scansteps
