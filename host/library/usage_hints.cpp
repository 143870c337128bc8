// Nearest words by edit distance, and the messages made of them.
#include "usage_hints.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "scansteps/file_patterns.h"

namespace scansteps::host {

namespace {

// Edits (insert, delete, replace, swap of neighbours) that turn one word into the other: the restricted
// Damerau-Levenshtein distance.
std::size_t editDistance(std::string_view a, std::string_view b)
{
    std::vector<std::size_t> before, last(b.size() + 1), row(b.size() + 1);
    for (std::size_t j = 0; j <= b.size(); ++j) row[j] = j;
    for (std::size_t i = 1; i <= a.size(); ++i) {
        before = std::exchange(last, row);
        row[0] = i;
        for (std::size_t j = 1; j <= b.size(); ++j) {
            row[j] = std::min({last[j] + 1, row[j - 1] + 1, last[j - 1] + (a[i - 1] != b[j - 1])});
            if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1])
                row[j] = std::min(row[j], before[j - 2] + 1);
        }
    }
    return row[b.size()];
}

}  // namespace

std::string nearest(std::string_view word, const std::vector<std::string>& candidates)
{
    std::string best;
    std::size_t bestDistance = std::max<std::size_t>(1, word.size() / 3) + 1;
    for (const std::string& candidate : candidates) {
        // The distance is at least the difference in length, which makes very long words cheap.
        if (std::max(word.size(), candidate.size()) - std::min(word.size(), candidate.size()) >= bestDistance)
            continue;
        const std::size_t distance = editDistance(word, candidate);
        if (distance < bestDistance) {
            bestDistance = distance;
            best = candidate;
        }
    }
    if (!best.empty() || word.size() < 4) return best;
    for (const std::string& candidate : candidates)
        if (candidate.starts_with(word)) return candidate;
    return best;
}

std::string didYouMean(std::string_view word, const std::vector<std::string>& candidates,
                       const std::string& otherwise)
{
    const std::string near = nearest(word, candidates);
    return near.empty() ? otherwise : fmt::format("; did you mean \"{}\"?", near);
}

std::string inQuotes(std::string_view word)
{
    constexpr std::size_t kShown = 60;
    if (word.size() <= 3 * kShown) return fmt::format("\"{}\"", word);
    const auto isInside = [&](std::size_t at) {
        return (static_cast<unsigned char>(word[at]) & 0xC0U) == 0x80;
    };
    std::size_t head = kShown, tail = word.size() - kShown;
    while (head > 0 && isInside(head)) --head;
    while (tail < word.size() && isInside(tail)) ++tail;
    return fmt::format("\"{}...{}\" ({} bytes)", word.substr(0, head), word.substr(tail), word.size());
}

std::string patternHint(const std::string& name)
{
    if (!isFilePattern(name)) return "";
    return fmt::format(
        "; this step takes the first of a series of numbered files, imread takes patterns: "
        "\"imread name={}\"",
        name);
}

std::string unexpectedArgument(const std::string& command, const std::vector<std::string>& left,
                               const std::vector<std::string>& options)
{
    const std::string who = command.empty() ? "scansteps" : command;
    for (const std::string& word : left) {
        if (!word.starts_with('-') || word == "-") continue;
        const std::string name = word.substr(0, word.find('='));
        return fmt::format(
            "{} has no option {}{}", who, inQuotes(name),
            didYouMean(name, options,
                       fmt::format(" (scansteps help{}{} lists them)", command.empty() ? "" : " ", command)));
    }
    if (left.empty()) return "";
    return fmt::format("{} does not expect {}: a pipeline, and a name with spaces, is one argument in quotes",
                       who, inQuotes(left.front()));
}

}  // namespace scansteps::host
