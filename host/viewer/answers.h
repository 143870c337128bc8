// Makes the answers to the page's requests out of shots.
#pragma once

#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <span>

#include "messages.h"
#include "shot.h"

namespace scansteps::viewer {

using Json = nlohmann::json;
using Answer = std::shared_ptr<const Bytes>;

/// One binary message: the length of the head (4 bytes, little-endian), the head (JSON), blanks up to a
/// multiple of four bytes, the payload.
Answer envelope(const Json& head, std::span<const std::uint8_t> payload = {});

/// Answers all requests but those for the status. `shot` is what is asked about.
Answer answerWith(const Request& request, const Shot& shot);
/// Nothing to show: the step has passed nothing on so far, or the text says what is wrong.
Answer answerNothing(const Request& request, const std::string& error);

}  // namespace scansteps::viewer
