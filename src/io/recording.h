// A recording as the players read it: one record after the other, errors in the words of the players.
#pragma once

#include <memory>
#include <string>

#include "scansteps/error.h"
#include "scansteps/stream.h"

namespace scansteps {

class Recording
{
  public:
    /// Opens the file, replacing an earlier one. A file that cannot be opened is reported by next().
    void open(const std::string& path)
    {
        file_ = std::make_unique<BIOfs>(path, BIOfs::Mode::Read);
        if (!file_->isOpen()) file_.reset();
    }
    bool isOpen() const { return file_ != nullptr; }

    /// The next record. Throws "error file read" when no file is open, "read error" when the file ends and
    /// "Read Error" when it is damaged. The record's first array of the size of `spare` takes its storage.
    varitype next(Array* spare = nullptr)
    {
        if (!file_) fail("error file read");
        return readRecord(*file_, {}, spare);
    }

  private:
    std::unique_ptr<BIOfs> file_;
};

}  // namespace scansteps
