// A recording as the players read it: record by record, with their error texts.
#pragma once

#include <cstring>
#include <memory>
#include <string>

#include "scansteps/error.h"
#include "scansteps/host_services.h"
#include "scansteps/stream.h"

namespace scansteps::recording {

class Recording
{
  public:
    /// Opens the file, closing an earlier one. Failure is reported by next().
    void open(const std::string& path) { file_ = std::make_unique<BIOfs>(path, BIOfs::Mode::Read); }
    bool isOpen() const { return file_ != nullptr && file_->isOpen(); }

    /// The next record. Throws "error file read" when no file is open, "read error" at the end of the file
    /// and "Read Error" when it is damaged. See readRecord() for `spare`.
    varitype next(Array* spare = nullptr)
    {
        if (!isOpen()) refuse("error file read");
        const std::uint64_t begin = file_->position();
        try {
            return readRecord(*file_, {}, spare);
        } catch (const char* text) {
            if (std::strcmp(text, "Read Error") == 0) tell("damaged record at byte " + std::to_string(begin));
            throw;
        }
    }

    /// Notifies the host of file and reason if a file could not be opened, then throws `text`.
    [[noreturn]] void refuse(const char* text) const
    {
        if (file_) tell(file_->reason());
        fail(text);
    }

  private:
    void tell(const std::string& reason) const
    {
        notifyHost(Trouble::FileFailed, "", file_->path().c_str(), reason.c_str());
    }

    std::unique_ptr<BIOfs> file_;
};

}  // namespace scansteps::recording
