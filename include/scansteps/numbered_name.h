// Numbered file names: all decimal digits of a name, wherever they are, form one counter of fixed width.
#pragma once

#include "scansteps/cpp20.h"

#include <string>

namespace scansteps {

/// Increments the counter and returns whether it wrapped. A carry crosses extension, separators and folder
/// names: "a1/x9.jpg" becomes "a2/x0.jpg", and "img9999.jpg" wraps to "img0000.jpg". A name without digits is
/// left unchanged and counts as wrapped.
bool incrementName(std::string& name);

/// Decrements the counter and returns whether it wrapped ("x00" becomes "x99").
bool decrementName(std::string& name);

/// Adds `steps`, which may be negative, to the counter, in a time that does not depend on `steps`. Returns
/// whether the last of as many single steps would have wrapped it.
bool advanceName(std::string& name, int steps);

}  // namespace scansteps
