// JSON files that have to conform to a schema. What does not conform is refused with the JSON path of the
// offending value.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>

namespace scansteps::scan {

/// Parses `text` and checks it against a JSON schema (draft 7). `what` begins the message of errors, which
/// are thrown C strings: "WHAT: /camera/focal/0: Value '0' is less than ...".
nlohmann::json checkedJson(std::string_view text, std::string_view schema, const char* what);

/// Throws "WHAT: PATH: REASON".
[[noreturn]] void failAt(const char* what, const std::string& path, const std::string& reason);

/// The bytes of a file of at most 64 MiB. Throws "WHAT: cannot read FILE".
std::string readTextFile(const std::string& name, const char* what);
/// Writes a file. Throws "WHAT: cannot write FILE: REASON".
void writeTextFile(const std::string& name, std::string_view text, const char* what);

}  // namespace scansteps::scan
