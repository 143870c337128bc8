// What the fuzz target of the page's messages does with its input, shared with the test that replays the
// corpus.
#pragma once

#include <cstdlib>
#include <stdexcept>
#include <string_view>
#include <variant>

#include "viewer/answers.h"
#include "viewer/messages.h"

namespace scansteps::fuzzing {

/// A frame of YUYV16 samples with corners, as a chain passes it on.
inline viewer::Shot exampleShot()
{
    viewer::Shot shot;
    auto frame = std::make_shared<Array>(Kind::Ushort, 40, 30);
    for (std::size_t i = 0; i < frame->size(); ++i)
        frame->elements<std::uint16_t>()[i] = std::uint16_t(i * 77);
    shot.layout = viewer::layoutOf(*frame, {40, true});
    shot.copy = std::move(frame);
    shot.record.set("vert", Array(Kind::Float, 2, 300));
    shot.record.set("nested", varitype(Struct{{"a", 1}, {"b", "text"}}));
    return shot;
}

/// A message is refused with a text, or is within the limits that its readers rely on and can be answered.
inline void readMessage(const std::uint8_t* data, std::size_t size)
{
    static const viewer::Shot shot = exampleShot();
    try {
        const viewer::Message message = viewer::parseMessage({reinterpret_cast<const char*>(data), size});
        const auto* request = std::get_if<viewer::Request>(&message);
        if (request == nullptr) return;
        if (request->slot.empty() || request->width < 1 || request->height < 1) std::abort();
        if (request->what == viewer::Request::What::Status) return;
        if (!viewer::answerWith(*request, shot)) std::abort();
    } catch (const std::runtime_error& error) {
        if (*error.what() == '\0') std::abort();
    }
}

}  // namespace scansteps::fuzzing
