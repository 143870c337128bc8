// Numbered file names: the decimal digits of a name, wherever they stand, are one counter of fixed width.
#pragma once

#include <string>

namespace scansteps {

/// Counts `name` up by one and returns whether the counter wrapped. The digits of the whole name form one
/// number; a carry crosses the extension, separators and folder names, so that "a1/x9.jpg" becomes
/// "a2/x0.jpg", and "img9999.jpg" wraps to "img0000.jpg". A name without digits stays and counts as wrapped.
bool incrementName(std::string& name);

/// Counts `name` down by one and returns whether the counter wrapped ("x00" becomes "x99").
bool decrementName(std::string& name);

/// Advances `name` by `steps`, up when positive, down when negative, not at all when 0, in one pass whatever
/// the distance. Returns whether the last of the single steps wrapped the counter.
bool advanceName(std::string& name, int steps);

}  // namespace scansteps
