// What the page may say, one JSON object a message. The sender is not trusted.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "picture.h"

namespace scansteps::viewer {

/// Asks for something that is answered once, as soon as there is anything newer than `after`. A request takes
/// the place of an unanswered one with the same slot.
struct Request
{
    enum class What
    {
        Status,
        Picture,
        Overlays,
        Record,
        Value,
        Model,
    };
    What what = What::Status;
    std::string slot;           ///< a name that the answer bears
    std::size_t step = 0;       ///< index of the step whose result is meant
    bool tuned = false;         ///< of the trial chain
    std::uint64_t after = 0;    ///< version that the page has; 0: none
    Rect region;                ///< of a picture; nothing: all of it
    int width = 0, height = 0;  ///< largest picture that the page can show
    bool exact = false;         ///< the bytes of the elements
    bool histogram = false;
    std::optional<Window> window;
    std::vector<std::string> path;  ///< of a record
    std::uint64_t first = 0;
    std::int64_t x = 0, y = 0;  ///< pixel of a value
};

struct SetSetting
{
    std::size_t step = 0;
    std::string path;
    std::optional<std::string> value;  ///< nothing: as it was before it was tuned
};

struct Action
{
    enum class What
    {
        Run,
        Pause,
        Step,
        Apply,
        Discard,
        Hold,
        Seek,
        Export,
    };
    What what = What::Run;
    std::int64_t number = 0;  ///< record to seek
};

using Message = std::variant<Request, SetSetting, Action>;

/// Throws std::runtime_error for anything else.
Message parseMessage(std::string_view text);

/// Longest message that is accepted, in bytes.
inline constexpr std::size_t kMaxMessage = 8192;

}  // namespace scansteps::viewer
