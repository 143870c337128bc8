// Validation of JSON with valijson, and the files it comes from.
#include "checked_json.h"

#include <scansteps/error.h>
#include <scansteps/printable.h>
#include <scansteps/stream.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <vector>

// Adapters of the library trip warnings that this project keeps on.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wconversion"
#pragma GCC diagnostic ignored "-Wshadow"
#pragma GCC diagnostic ignored "-Wnon-virtual-dtor"
#include <valijson/adapters/nlohmann_json_adapter.hpp>
#include <valijson/schema.hpp>
#include <valijson/schema_parser.hpp>
#include <valijson/validation_results.hpp>
#include <valijson/validator.hpp>
#pragma GCC diagnostic pop

namespace scansteps::scan {
namespace {

// "<root>", "[camera]", "[focal]", "[0]" as /camera/focal/0.
std::string pathOf(const std::vector<std::string>& context)
{
    std::string path;
    for (const std::string& part : context)
        if (part.size() > 2 && part.front() == '[') path += "/" + part.substr(1, part.size() - 2);
    return path.empty() ? "/" : path;
}

// The innermost value at fault: the others only contain it.
void failDeepest(const valijson::ValidationResults& results, const char* what)
{
    const valijson::ValidationResults::Error* deepest = nullptr;
    for (const auto& error : results)
        if (deepest == nullptr || error.context.size() > deepest->context.size()) deepest = &error;
    if (deepest != nullptr) failAt(what, pathOf(deepest->context), deepest->description);
}

}  // namespace

void failAt(const char* what, const std::string& path, const std::string& reason)
{
    failf("%s: %s: %s", what, printable(path.substr(0, 200)).c_str(),
          printable(reason.substr(0, 400)).c_str());
}

nlohmann::json checkedJson(std::string_view text, std::string_view schema, const char* what)
{
    nlohmann::json value;
    try {
        value = nlohmann::json::parse(text);
    } catch (const nlohmann::json::exception& error) {
        failf("%s: %s", what, printable(std::string_view(error.what()).substr(0, 400)).c_str());
    }
    const nlohmann::json rules = nlohmann::json::parse(schema);
    valijson::Schema parsed;
    valijson::SchemaParser().populateSchema(valijson::adapters::NlohmannJsonAdapter(rules), parsed);
    valijson::ValidationResults results;
    if (!valijson::Validator().validate(parsed, valijson::adapters::NlohmannJsonAdapter(value), &results)) {
        failDeepest(results, what);
        failAt(what, "/", "does not conform");
    }
    return value;
}

std::string readTextFile(const std::string& name, const char* what)
{
    constexpr std::uintmax_t kMaxBytes = std::uintmax_t{64} << 20U;
    const std::filesystem::path path(name);
    std::error_code error;
    std::ifstream file(path, std::ios::binary);
    if (!file || std::filesystem::is_directory(path, error))
        failf("%s: cannot read %s", what, printable(name).c_str());
    const std::uintmax_t size = std::filesystem::file_size(path, error);
    if (!error && size > kMaxBytes) failf("%s: %s is larger than 64 MiB", what, printable(name).c_str());
    std::string text{std::istreambuf_iterator<char>(file), {}};
    if (file.bad()) failf("%s: cannot read %s", what, printable(name).c_str());
    return text;
}

void writeTextFile(const std::string& name, std::string_view text, const char* what)
{
    BIOfs file(name, BIOfs::Mode::Stage);
    std::string reason = file.reason();
    if (file.isOpen()) try {
            file.write(text.data(), text.size());
            file.close();
            return;
        } catch (const char* thrown) {
            reason = file.failed() ? file.reason() : thrown;
        }
    failf("%s: cannot write %s: %s", what, printable(name).c_str(), printable(reason).c_str());
}

}  // namespace scansteps::scan
