// Files that jobs read and write: single ones, and series of numbered ones.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace scansteps::host {

struct Series
{
    std::string first;
    std::int64_t count = 1;  ///< files; 0: unknown
    int step = 1;            ///< from a name to the next
    bool counted = false;    ///< its names are counted up
};

/// A name apart from the counter that its digits form.
struct NumberedName
{
    std::string shape;  ///< with '#' for every digit of the counter
    std::int64_t number = 0;
};
NumberedName numbered(const std::string& name);

/// How many files of a series exist, from the first on without a gap.
class SeriesLengths
{
  public:
    std::int64_t length(const std::string& first, int step, std::int64_t most);

  private:
    // The series that was counted last; jobs that begin within it need no look at the files.
    NumberedName last_;
    std::int64_t lastLength_ = 0;
};

/// Changes when a file of them gets another size or modification time, appears or vanishes. 16 digits.
std::string stateOf(const std::vector<Series>& inputs);
/// Files of the series that exist and are not empty.
std::int64_t countFiles(const std::vector<Series>& outputs, std::int64_t frames);

/// Finds files that two jobs write.
class OutputRegister
{
  public:
    /// To be called with the jobs in order.
    void add(std::size_t job, const Series& output);
    struct Clash
    {
        std::size_t first = 0, second = 0;
        std::string name;
        bool sameStart = true;
    };
    /// Empty name: there is none.
    Clash find() const;

  private:
    struct Span
    {
        std::int64_t begin = 0, end = 0;
        std::size_t job = 0;
        std::string name;
    };
    std::string resolved(const std::string& name);

    std::map<std::string, std::string> folders_;
    std::map<std::string, std::vector<Span>> spans_;
};

/// Throws FileError.
void createFolderOf(const std::string& file);
/// Creates the folders of the outputs. Where the job was killed before, removes temporary files that it left.
/// Throws FileError.
void prepareOutputs(const std::vector<Series>& outputs, bool wasKilled);

}  // namespace scansteps::host
