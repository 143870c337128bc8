// The table of steps: names, types, settings and frame flow of every step. The exported functions, the
// settings read by steps, `scansteps steps`, the settings check, the JSON schema and the reference page are
// all derived from it.
#pragma once

#include <limits>
#include <span>
#include <string_view>
#include <type_traits>

#include "scansteps/array.h"

namespace scansteps {

/// A copy of `entry` with one member changed.
template <class Entry, class Value>
constexpr Entry with(Entry entry, Value Entry::*member, std::type_identity_t<Value> value)
{
    entry.*member = value;
    return entry;
}

/// What a setting refers to outside the program, if anything.
enum class SettingRole
{
    None,
    Input,    ///< a file that the step reads
    Output,   ///< a file that the step writes
    Host,     ///< the address of a peer
    Port,     ///< the port of a peer
    Unknown,  ///< a text of a plug-in that declares no roles: it may be any of these
};

/// One setting of a step: a key of the initialise record, or one inside a nested record of its family.
struct SettingInfo
{
    const char* path = "";  ///< "OCV.trh", or "dataX" at the top level
    Kind kind = Kind::Empty;
    bool required = false;
    bool presence = false;       ///< only whether the key is present matters, not its kind or value
    double number = 0;           ///< default of a number
    const char* text = nullptr;  ///< default of a string
    double min = -std::numeric_limits<double>::infinity();
    double max = std::numeric_limits<double>::infinity();
    /// Values outside min ... max are an error; otherwise the range is a hint and the step decides.
    bool enforced = false;
    SettingRole role = SettingRole::None;
    bool counted = false;  ///< names the first of a series of numbered files (numbered_name.h)
    bool pattern = false;  ///< an input that may stand for several files (file_patterns.h)
    /// File name endings, separated by blanks, one of which an output's name must contain; empty: any name.
    const char* endings = "";
    const char* unitName = "";
    const char* doc = "";

    constexpr bool hasDefault() const { return !required && !presence; }

    /// Rejects values outside low ... high.
    constexpr SettingInfo range(double low, double high) const
    {
        return with(hint(low, high), &SettingInfo::enforced, true);
    }
    /// Range of useful values, not enforced.
    constexpr SettingInfo hint(double low, double high) const
    {
        return with(with(*this, &SettingInfo::min, low), &SettingInfo::max, high);
    }
    constexpr SettingInfo names(SettingRole what) const { return with(*this, &SettingInfo::role, what); }
    /// The setting names a file that the step writes; see `endings`.
    constexpr SettingInfo writes(const char* allowed = "") const
    {
        return with(names(SettingRole::Output), &SettingInfo::endings, allowed);
    }
    /// The setting names the first of a series of numbered files.
    constexpr SettingInfo countedUp() const { return with(*this, &SettingInfo::counted, true); }
    /// The setting names an input that may be a pattern or a list of files.
    constexpr SettingInfo readsPattern() const
    {
        return with(names(SettingRole::Input), &SettingInfo::pattern, true);
    }
    constexpr SettingInfo unit(const char* name) const { return with(*this, &SettingInfo::unitName, name); }
};

/// Sample format of a frame.
enum class Pixels
{
    Any,
    None,       ///< no frame under "handle"
    Same,       ///< as the input
    Rgb8,       ///< 8-bit R, G, B
    Yuyv16,     ///< 16-bit samples, each of luma and one chroma value
    Offset16,   ///< 16-bit samples that store the value v as v + 32768
    Samples16,  ///< Yuyv16 or Offset16
    Float,      ///< 32-bit float samples
};
/// "rgb8", "yuyv16", ...
const char* pixelsName(Pixels pixels);

/// How frames pass through a step.
struct FrameFlow
{
    Pixels in = Pixels::Any;
    Pixels out = Pixels::Same;
    bool isStateless = false;  ///< the result for a frame does not depend on other frames
    bool readsOnly = false;    ///< writes its result to another frame and leaves the incoming one unchanged
    bool addsData = false;     ///< adds the frame to the record as "data"
    bool refusesData = false;  ///< a record with both "handle" and "data" is an error

    constexpr FrameFlow stateless() const { return with(*this, &FrameFlow::isStateless, true); }
    constexpr FrameFlow separate() const { return with(*this, &FrameFlow::readsOnly, true); }
    constexpr FrameFlow withData() const { return with(*this, &FrameFlow::addsData, true); }
    constexpr FrameFlow withoutData() const { return with(*this, &FrameFlow::refusesData, true); }
};

struct StepInfo
{
    const char* kind = "";       ///< export suffix, such as "ccanny"
    const char* className = "";  ///< what getName() returns, such as "CpuCanny"
    const char* typeIn = "";
    const char* typeOut = "";
    bool source = false;  ///< produces frames: the host sends no "handle"
    bool player = false;  ///< a source whose recording contains its own initialise record
    FrameFlow frames;
    const char* summary = "";
    std::span<const SettingInfo> settings;
};

/// All steps, in alphabetical order of `kind`: those of the step library and what addSteps() of plugin.h
/// added. Spans and pointers stay valid when steps are added.
std::span<const StepInfo> stepTable();
/// Null when there is no such step.
const StepInfo* findStep(std::string_view kind);
const StepInfo* findStepByClass(std::string_view className);
const SettingInfo* findSetting(const StepInfo& step, std::string_view path);

}  // namespace scansteps
