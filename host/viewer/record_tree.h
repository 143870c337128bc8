// One level of a record as the page's tree shows it, in pages.
#pragma once

#include <nlohmann/json.hpp>

#include <cstdint>
#include <string>
#include <vector>

#include "scansteps/record.h"

namespace scansteps::viewer {

/// The children of the value under `path` (keys, and indices into struct arrays as numbers), from number
/// `first` on, a page of at most kPage: {"path", "first", "count", "children": [{"key", "kind", "shape",
/// "value", "open"}]}; elements of an array have no kind of their own. "error" when there is nothing under
/// the path.
nlohmann::json recordPage(const varitype& record, const std::vector<std::string>& path, std::uint64_t first);
inline constexpr std::uint64_t kPage = 100;

}  // namespace scansteps::viewer
