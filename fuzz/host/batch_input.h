// What the fuzz target of batches does with its input, shared with the test that replays the corpus. The
// first byte chooses what is parsed: a list, a list with columns, a text with placeholders or a journal.
#pragma once
#ifdef __linux__

#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>

#include "program/batch_inputs.h"
#include "program/batch_journal.h"
#include "scansteps/host.h"

namespace scansteps::fuzzing {

/// A file of this process with the content.
inline std::string fileWith(const char* name, std::string_view content)
{
    namespace fs = std::filesystem;
    const fs::path folder =
        fs::temp_directory_path() / ("scansteps_batch_input_" + std::to_string(::getpid()));
    fs::create_directories(folder);
    std::ofstream(folder / name, std::ios::binary) << content;
    return (folder / name).string();
}

// Every row has a value for each column, and a column's placeholder stands for that value.
inline void checkRows(const host::BatchInputs& inputs)
{
    if (inputs.rows.empty() && inputs.columns.empty()) std::abort();
    for (std::size_t row = 0; row < inputs.rows.size(); ++row) {
        const host::Placeholders values(inputs, row, row);
        if (inputs.rows[row].values.size() != inputs.columns.size()) std::abort();
        for (std::size_t i = 0; i < inputs.columns.size(); ++i)
            if (values.fill("{" + inputs.columns[i] + "}", "") != inputs.rows[row].values[i]) std::abort();
        if (values.fill("{{{n}", "") != "{" + std::to_string(row)) std::abort();
    }
}

inline void fillText(std::string_view text)
{
    host::BatchInputs inputs;
    inputs.columns = {"a", "b.c"};
    inputs.rows = {{"x/y.jpg", {"{n}", ""}}};
    const std::string filled = host::Placeholders(inputs, 0, 7).fill(text, "here");
    if (!text.empty() && text.find('{') == text.npos && filled != text) std::abort();
}

// A line that is cut off at the end is dropped, whatever was before it; all else is kept, and the next line
// is found again.
inline void readJournal(std::string_view text)
{
    const std::string name = fileWith("journal.jsonl", text);
    const std::string folder = std::filesystem::path(name).parent_path().string();
    std::size_t records = 0;
    {
        host::Journal journal(folder, true);
        journal.append({{"key", "fuzz"}, {"state", "started"}, {"job", 1}});
        records = journal.records().size();
    }
    const host::Journal again(folder, true);
    if (again.records().at("fuzz").state != "started" || again.records().size() < records) std::abort();
    const std::size_t end = text.rfind('\n');
    if (std::filesystem::file_size(name) < (end == text.npos ? 0 : end + 1)) std::abort();
}

/// Aborts where a result contradicts itself; input that is refused must be refused with a message.
inline void readBatch(const std::uint8_t* data, std::size_t size)
{
    if (size == 0) return;
    const std::string_view text(reinterpret_cast<const char*>(data) + 1, size - 1);
    try {
        switch (data[0] % 4) {
            case 0:
                return checkRows(host::inputsFromList(fileWith("list.txt", text)));
            case 1:
                return checkRows(host::inputsFromList(fileWith("list.csv", text)));
            case 2:
                return fillText(text);
            default:
                return readJournal(text);
        }
    } catch (const host::UsageError& error) {
        if (*error.what() == '\0') std::abort();
    }
}

}  // namespace scansteps::fuzzing
#endif
