// Hints about unknown words: the known word that is spelt most alike, and what may have been meant.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace scansteps::host {

/// The candidate of the smallest edit distance; empty when none is near.
std::string nearest(std::string_view word, const std::vector<std::string>& candidates);

/// `; did you mean "NAME"?` with the nearest candidate; `otherwise` when none is near.
std::string didYouMean(std::string_view word, const std::vector<std::string>& candidates,
                       const std::string& otherwise = "");

/// In double quotes, shortened in the middle when it is very long.
std::string inQuotes(std::string_view word);

/// For the name of a series of numbered files that does not exist: mentions the step that takes patterns when
/// the name is one ("shots/*.jpg", "img%04d.png"); otherwise empty.
std::string patternHint(const std::string& name);

/// About the arguments that a command (empty: the program itself) with these options leaves over. Empty when
/// there are none.
std::string unexpectedArgument(const std::string& command, const std::vector<std::string>& left,
                               const std::vector<std::string>& options);

}  // namespace scansteps::host
