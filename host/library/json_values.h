// Converts between JSON and the values of a record, in the form of pipeline files: kinds that JSON does not
// have are objects of one key that is a type name, such as {"Double": 1.5}.
#pragma once

#include <nlohmann/json.hpp>

#include <string>

#include "scansteps/host.h"

namespace scansteps::host {

using Json = nlohmann::json;

/// The value of a JSON value; kind Empty for `false` and `null`, which leave the key out. `where` names the
/// place in messages. Throws UsageError.
varitype valueFromJson(const Json& json, const std::string& where);

/// A value of exactly that kind. Numbers are converted when they fit. Throws UsageError.
varitype valueFromJson(const Json& json, Kind kind, const std::string& where);

/// True for an object of one key that is a type name.
bool isForcedKind(const Json& json);

struct JsonOptions
{
    bool arrayData = false;  ///< with the elements of arrays, not only their size
};
Json jsonFromValue(const varitype& value, const JsonOptions& options = {});
/// Members of a record in key order.
Json jsonFromRecord(const Struct& record, const JsonOptions& options = {});

/// One line of text, also for strings that are not UTF-8.
std::string dumpLine(const Json& json);

}  // namespace scansteps::host
