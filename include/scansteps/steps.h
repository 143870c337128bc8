// The table of kinds: what every step is called, takes, gives and can be set to. Declared once; the exported
// functions, the settings that steps read, `scansteps steps`, the settings check, the JSON schema and the
// reference page are made from it.
#pragma once

#include <limits>
#include <span>
#include <string_view>

#include "scansteps/array.h"

namespace scansteps {

/// What a setting names, if it names something outside the program.
enum class SettingRole
{
    None,
    Input,   ///< a file that the step reads
    Output,  ///< a file that the step writes
    Host,    ///< the address of a peer
    Port,    ///< the port of a peer
};

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
    SettingRole role = SettingRole::None;
    bool counted = false;  ///< first of numbered files: the name is counted up (numbered_name.h)
    const char* endings =
        "";  ///< of which an output's name holds one, or nothing is written; empty: any name
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
    constexpr SettingInfo names(SettingRole what) const
    {
        SettingInfo copy = *this;
        copy.role = what;
        return copy;
    }
    /// A file that is written. `allowed` endings have blanks between them.
    constexpr SettingInfo writes(const char* allowed = "") const
    {
        SettingInfo copy = names(SettingRole::Output);
        copy.endings = allowed;
        return copy;
    }
    /// Of numbered files, the first.
    constexpr SettingInfo countedUp() const
    {
        SettingInfo copy = *this;
        copy.counted = true;
        return copy;
    }
    constexpr SettingInfo unit(const char* name) const
    {
        SettingInfo copy = *this;
        copy.unitName = name;
        return copy;
    }
};

/// What the pixels of a frame are.
enum class Pixels
{
    Any,
    None,       ///< no frame under "handle"
    Same,       ///< those of the input
    Rgb8,       ///< 8-bit R, G, B
    Yuyv16,     ///< 16-bit samples that each hold luma and one chroma value
    Offset16,   ///< 16-bit samples, 32768 is zero
    Samples16,  ///< Yuyv16 or Offset16
    Float,      ///< 32-bit float samples
};
/// "rgb8", "yuyv16", ...
const char* pixelsName(Pixels pixels);

/// How frames pass a step.
struct FrameFlow
{
    Pixels in = Pixels::Any;
    Pixels out = Pixels::Same;
    bool isStateless = false;  ///< each frame by itself: what becomes of it does not depend on others
    bool addsData = false;     ///< the frame is also in the record, as "data"
    bool refusesData = false;  ///< a frame under "handle" and a "data" entry are an error

    constexpr FrameFlow stateless() const
    {
        FrameFlow copy = *this;
        copy.isStateless = true;
        return copy;
    }
    constexpr FrameFlow withData() const
    {
        FrameFlow copy = *this;
        copy.addsData = true;
        return copy;
    }
    constexpr FrameFlow withoutData() const
    {
        FrameFlow copy = *this;
        copy.refusesData = true;
        return copy;
    }
};

struct StepInfo
{
    const char* kind = "";       ///< export suffix, such as "ccanny"
    const char* className = "";  ///< what getName() returns, such as "CpuCanny"
    const char* typeIn = "";
    const char* typeOut = "";
    bool source = false;  ///< makes frames of its own: the host sends it no "handle"
    bool player = false;  ///< a source whose recording brings an initialise record of its own
    FrameFlow frames;
    const char* summary = "";
    std::span<const SettingInfo> settings;
};

/// All kinds, in alphabetical order.
std::span<const StepInfo> stepTable();
/// Null when there is no such kind.
const StepInfo* findStep(std::string_view kind);
const StepInfo* findStepByClass(std::string_view className);
const SettingInfo* findSetting(const StepInfo& kind, std::string_view path);

}  // namespace scansteps
