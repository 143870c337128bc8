// The inputs of a batch and the placeholders that they fill.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace scansteps::host {

struct BatchInputs
{
    struct Row
    {
        std::string path;
        std::vector<std::string> values;  ///< of the columns
    };
    std::vector<std::string> columns;  ///< names, for a list with a header
    std::vector<Row> rows;
    bool isPath = true;  ///< whether Row::path is known to be an input, not just some first column
};

/// The files that match, sorted by bytes. Throws UsageError when there is none.
BatchInputs inputsFromGlob(const std::string& pattern);
/// One path a line; of a name ending in ".csv": a header, and fields that may be quoted (RFC 4180). Throws
/// UsageError.
BatchInputs inputsFromList(const std::string& file);

/// Whether a text has something like "{}" or "{name}" in it.
bool holdsPlaceholder(std::string_view text);

/// What the placeholders stand for in one job.
class Placeholders
{
  public:
    Placeholders(const BatchInputs& inputs, std::size_t row, std::size_t n)
        : inputs_(inputs), row_(row), n_(n)
    {
    }
    /// "{{" becomes a brace, {}, {dir}, {stem}, {n} and the columns' names what they stand for. Throws
    /// UsageError, which begins with `where`, for other names.
    std::string fill(std::string_view text, const std::string& where) const;

  private:
    std::string value(std::string_view name, const std::string& where) const;

    const BatchInputs& inputs_;
    std::size_t row_, n_;
};

}  // namespace scansteps::host
