// Reads globs and lists, and fills placeholders.
#include "batch_inputs.h"

#include <fmt/format.h>
#include <glob.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <utility>

#include "library/descriptors.h"
#include "library/platform.h"
#include "library/usage_hints.h"
#include "scansteps/host.h"

namespace scansteps::host {

namespace {

// What a column may not be called, as it means something already.
constexpr std::string_view kBuiltIn[] = {"dir", "stem", "n"};

bool isNameByte(char c)
{
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_' ||
           c == '.' || c == '-';
}

// The records of a text of comma-separated values.
class CsvReader
{
  public:
    CsvReader(const std::string& text, const std::string& file) : text_(text), file_(file) {}

    /// False at the end.
    bool next(std::vector<std::string>& fields)
    {
        while (at_ < text_.size() && (text_[at_] == '\n' || text_[at_] == '\r')) skipByte();
        if (at_ == text_.size()) return false;
        recordLine_ = line_;
        fields.clear();
        for (bool more = true; more;) {
            fields.push_back(field());
            more = at_ < text_.size() && text_[at_] == ',';
            if (more) ++at_;
        }
        return true;
    }
    [[noreturn]] void fail(const std::string& what) const
    {
        throw UsageError{fmt::format("{}, line {}: {}", file_, recordLine_, what)};
    }

  private:
    void skipByte() { line_ += text_[at_++] == '\n' ? 1U : 0U; }
    bool atFieldEnd() const
    {
        return at_ == text_.size() || text_[at_] == ',' || text_[at_] == '\n' || text_[at_] == '\r';
    }
    std::string field()
    {
        std::string result;
        if (at_ == text_.size() || text_[at_] != '"') {
            while (!atFieldEnd()) result += text_[at_++];
            return result;
        }
        for (++at_;; skipByte()) {
            if (at_ == text_.size()) fail("a quote is not closed");
            if (text_[at_] == '"' && (at_ + 1 == text_.size() || text_[at_ + 1] != '"')) break;
            if (text_[at_] == '"') ++at_;
            result += text_[at_];
        }
        ++at_;
        if (!atFieldEnd()) fail("text after a closing quote");
        return result;
    }

    const std::string& text_;
    const std::string& file_;
    std::size_t at_ = 0;
    std::size_t line_ = 1, recordLine_ = 1;
};

BatchInputs inputsFromCsv(const std::string& text, const std::string& file)
{
    BatchInputs inputs;
    CsvReader reader(text, file);
    if (!reader.next(inputs.columns)) throw UsageError{fmt::format("{} has no header", file)};
    for (const std::string& name : inputs.columns) {
        if (name.empty() || !std::all_of(name.begin(), name.end(), isNameByte))
            reader.fail(fmt::format("{} cannot be the name of a placeholder", inQuotes(name)));
        if (std::find(std::begin(kBuiltIn), std::end(kBuiltIn), name) != std::end(kBuiltIn) ||
            std::count(inputs.columns.begin(), inputs.columns.end(), name) > 1)
            reader.fail(fmt::format("the name {} is taken already", inQuotes(name)));
    }
    const auto input = std::find(inputs.columns.begin(), inputs.columns.end(), "input");
    inputs.isPath = input != inputs.columns.end();
    const std::size_t path = inputs.isPath ? std::size_t(input - inputs.columns.begin()) : 0;
    for (std::vector<std::string> fields; reader.next(fields);) {
        if (fields.size() != inputs.columns.size())
            reader.fail(
                fmt::format("{} fields, but the header has {}", fields.size(), inputs.columns.size()));
        inputs.rows.push_back({fields[path], fields});
    }
    return inputs;
}

std::string stemOf(const std::string& path)
{
    return utf8FromPath(pathFromUtf8(path).stem());
}

std::string folderOf(const std::string& path)
{
    const std::size_t slash = path.rfind('/');
    return slash == path.npos ? "." : slash == 0 ? "/" : path.substr(0, slash);
}

}  // namespace

BatchInputs inputsFromGlob(const std::string& pattern)
{
    glob_t found{};
    const int code = ::glob(pattern.c_str(), GLOB_NOSORT, nullptr, &found);
    BatchInputs inputs;
    for (std::size_t i = 0; code == 0 && i < found.gl_pathc; ++i)
        inputs.rows.push_back({found.gl_pathv[i], {}});
    ::globfree(&found);
    if (code != 0) throw UsageError{fmt::format("no file matches {}", inQuotes(pattern))};
    std::sort(inputs.rows.begin(), inputs.rows.end(),
              [](const auto& a, const auto& b) { return a.path < b.path; });
    return inputs;
}

BatchInputs inputsFromList(const std::string& file)
{
    auto text = descriptor::readFile(file);
    if (!text) throw UsageError{cannot("read", file)};
    if (text->starts_with("\xEF\xBB\xBF")) text->erase(0, 3);
    BatchInputs inputs;
    if (file.ends_with(".csv")) {
        inputs = inputsFromCsv(*text, file);
    } else {
        for (std::size_t at = 0; at < text->size();) {
            const std::size_t end = std::min(text->find('\n', at), text->size());
            std::string line = text->substr(at, end - at);
            if (line.ends_with('\r')) line.pop_back();
            if (!line.empty()) inputs.rows.push_back({std::move(line), {}});
            at = end + 1;
        }
    }
    if (inputs.rows.empty()) throw UsageError{fmt::format("{} lists no input", file)};
    return inputs;
}

bool holdsPlaceholder(std::string_view text)
{
    for (std::size_t at = text.find('{'); at != text.npos; at = text.find('{', at + 1)) {
        std::size_t end = at + 1;
        while (end < text.size() && isNameByte(text[end])) ++end;
        if (end < text.size() && text[end] == '}') return true;
    }
    return false;
}

std::string Placeholders::value(std::string_view name, const std::string& where) const
{
    if (name == "n") return fmt::format("{}", n_);
    const auto column = std::find(inputs_.columns.begin(), inputs_.columns.end(), name);
    if (column != inputs_.columns.end() && row_ < inputs_.rows.size())
        return inputs_.rows[row_].values[std::size_t(column - inputs_.columns.begin())];
    const bool isBuiltIn = name.empty() || name == "dir" || name == "stem";
    if (isBuiltIn && row_ < inputs_.rows.size()) {
        const std::string& path = inputs_.rows[row_].path;
        return name.empty() ? path : name == "dir" ? folderOf(path) : stemOf(path);
    }
    std::vector<std::string> known = {"n"};
    if (!inputs_.rows.empty()) known.insert(known.end(), {"dir", "stem"});
    known.insert(known.end(), inputs_.columns.begin(), inputs_.columns.end());
    throw UsageError{fmt::format(
        "{}: there is no placeholder {{{}}}{}", where, name,
        didYouMean(name, known,
                   isBuiltIn ? "; it needs --each or --list" : "; a brace of its own is written {{"))};
}

std::string Placeholders::fill(std::string_view text, const std::string& where) const
{
    std::string result;
    while (!text.empty()) {
        const std::size_t brace = text.find('{');
        result += text.substr(0, brace);
        if (brace == text.npos) break;
        text.remove_prefix(brace + 1);
        if (text.starts_with('{')) {
            result += '{';
            text.remove_prefix(1);
            continue;
        }
        const std::size_t end = text.find('}');
        if (end == text.npos)
            throw UsageError{
                fmt::format("{}: a placeholder is not closed; a brace of its own is written {{{{", where)};
        result += value(text.substr(0, end), where);
        text.remove_prefix(end + 1);
    }
    return result;
}

}  // namespace scansteps::host
