// Inputs that stand for several files: patterns with wildcards, numbered names, lists of names.
#pragma once

#include "scansteps/cpp20.h"

#include <string>
#include <string_view>
#include <vector>

namespace scansteps {

/// Whether `name` would be expanded by matchingFiles(): it begins with "@", or names no existing file and
/// holds a wildcard or a printf conversion.
bool isFilePattern(const std::string& name);

/// The files that `name` stands for (names are UTF-8, relative to the working directory):
///   - "@FILE": one name a line of the text file FILE, also of missing files; blank lines and lines that
///   begin
///     with "#" are skipped
///   - an existing file: itself, whatever its name holds
///   - a name with "*", "?" or "[...]", in folders too: the existing files that match, in natural order;
///     "*" and "?" match neither a separator nor a dot at the beginning of a name
///   - a printf pattern such as "img%04d.png" ("%d", "%u", "%i" with an optional width; "%%" is "%"): the
///     numbers from 0, or from 1 where there is no 0, up to the first missing file
///   - anything else: itself
/// Throws a text that names the pattern when no file matches it, or names what cannot be read: a list, a
/// folder.
std::vector<std::string> matchingFiles(const std::string& name);

/// Whether `a` comes before `b` when runs of digits are compared as numbers: img2 before img10.
bool naturalLess(std::string_view a, std::string_view b);

/// Whether a file name matches a pattern of "*", "?" and "[...]" ("[!...]" for all others).
bool matchesWildcards(std::string_view name, std::string_view pattern);

}  // namespace scansteps
