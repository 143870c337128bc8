// The classes RecordingFile and RecordingWriter of the module.
#include "recording.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <pybind11/stl.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "errors.h"
#include "record.h"
#include "scansteps/chain.h"
#include "scansteps/stream.h"
#include "values.h"

namespace scansteps::python {

namespace {

// A file that is read at any position.
class File final : public BIO
{
  public:
    explicit File(std::string path)
        : path_(std::move(path)), file_(::open(path_.c_str(), O_RDONLY | O_CLOEXEC))
    {
        struct stat status = {};
        if (file_ < 0 || ::fstat(file_, &status) != 0) fail();
        if (S_ISDIR(status.st_mode)) {
            errno = EISDIR;
            fail();
        }
        size_ = std::uint64_t(status.st_size);
    }
    ~File() override { close(); }
    void close()
    {
        if (file_ >= 0) ::close(file_);
        file_ = -1;
    }

    void seek(std::uint64_t position)
    {
        position_ = position;
        ahead_ = ReadAhead();
        next_ = position;
    }
    std::uint64_t size() const { return size_; }
    std::uint64_t position() const { return position_; }
    const std::string& path() const { return path_; }
    bool isOpen() const { return file_ >= 0; }

    void write(const void*, std::size_t) override { throw "write error"; }
    void read(void* bytes, std::size_t length) override
    {
        const auto receive = [this](std::byte* to, std::size_t count, std::byte* ahead,
                                    std::size_t aheadCount) {
            // What is wanted and what is read ahead lie in different places.
            const auto wanted = receiveAt(to, count);
            if (wanted < std::int64_t(count) || ahead == nullptr) return wanted;
            const auto more = count < aheadCount ? receiveAt(ahead, aheadCount) : 0;
            return wanted + (more > 0 ? more : 0);
        };
        const std::size_t have = ahead_.read(static_cast<std::byte*>(bytes), length, receive);
        position_ += have;
        if (have != length) throw "read error";
    }
    [[noreturn]] void fail() const
    {
        raise("FileError", "cannot read " + path_ + ": " + std::strerror(errno));
    }

  private:
    std::int64_t receiveAt(std::byte* to, std::size_t count)
    {
        std::size_t done = 0;
        while (done != count) {
            const auto got = ::pread(file_, to + done, count - done, off_t(next_));
            if (got < 0 && errno == EINTR) continue;
            if (got <= 0) break;
            done += std::size_t(got);
            next_ += std::uint64_t(got);
        }
        return std::int64_t(done);
    }

    std::string path_;
    int file_ = -1;
    std::uint64_t size_ = 0, position_ = 0, next_ = 0;
    ReadAhead ahead_;
};

class RecordingFile
{
  public:
    explicit RecordingFile(const std::string& path) : file_(path) {}

    std::size_t count()
    {
        index();
        return offsets_.size();
    }
    /// Where the recording has no whole record any more although it goes on; nothing when it is undamaged.
    std::optional<std::uint64_t> damage()
    {
        index();
        return damage_;
    }
    std::uint64_t offset(std::size_t number)
    {
        index();
        return offsets_.at(number);
    }
    /// Throws FileError at a damaged record.
    std::unique_ptr<Record> at(std::size_t number)
    {
        index();
        return readAt(offsets_.at(number));
    }
    /// The record at a byte offset and the offset after it; None at the end of the file.
    py::object readFrom(std::uint64_t offset)
    {
        if (offset >= file_.size()) return py::none();
        auto record = readAt(offset);
        return py::make_tuple(std::move(record), file_.position());
    }
    std::uint64_t size() const { return file_.size(); }
    void close() { file_.close(); }

  private:
    // Follows the size fields; the contents are checked when a record is read.
    void index()
    {
        if (indexed_) return;
        offsets_.clear();
        std::uint64_t at = 0;
        while (at < file_.size()) {
            std::uint64_t size = 0;
            if (file_.size() - at < sizeof size) break;
            file_.seek(at);
            file_.read(&size, sizeof size);
            if (size < kMinRecord || size > file_.size() - at) break;
            offsets_.push_back(at);
            at += size;
        }
        if (at < file_.size()) damage_ = at;
        indexed_ = true;
    }
    std::unique_ptr<Record> readAt(std::uint64_t offset)
    {
        if (!file_.isOpen()) raise("FileError", file_.path() + ": the recording is closed");
        if (file_.position() != offset) file_.seek(offset);
        try {
            const ReadLimits limits{file_.size() - offset, UINT64_MAX};
            return Record::read(file_, limits, pool_);
        } catch (const char* text) {
            file_.seek(offset);
            raise("FileError", file_.path() + ": damaged at byte " + std::to_string(offset) + ": " + text);
        }
    }

    static constexpr std::uint64_t kMinRecord = 16;
    File file_;
    std::shared_ptr<FramePool> pool_ = std::make_shared<FramePool>();
    std::vector<std::uint64_t> offsets_;
    std::optional<std::uint64_t> damage_;
    bool indexed_ = false;
};

// Writes under a temporary name; the file is there, complete, after commit().
class RecordingWriter
{
  public:
    explicit RecordingWriter(const std::string& path) : file_(std::in_place, path, BIOfs::Mode::Stage)
    {
        if (!file_->isOpen()) fail();
    }
    void write(const Record& record)
    {
        try {
            record.write(*file_);
        } catch (const char* text) {
            if (file_->failed()) fail();
            raise("FormatError", std::string("the record cannot be written: ") + text);
        }
    }
    void commit()
    {
        try {
            file_->commit();
            file_->close();
        } catch (const char*) {
            fail();
        }
        file_.reset();
    }
    void abandon() { file_.reset(); }

  private:
    [[noreturn]] void fail() const
    {
        raise("FileError", "cannot write " + file_->path() + ": " + file_->reason());
    }
    std::optional<BIOfs> file_;
};

}  // namespace

void bindRecording(py::module_& module)
{
    py::class_<RecordingFile>(module, "RecordingFile")
        .def(py::init<const std::string&>())
        .def("count", &RecordingFile::count)
        .def("damage", &RecordingFile::damage)
        .def("offset", &RecordingFile::offset)
        .def("at", &RecordingFile::at)
        .def("read_from", &RecordingFile::readFrom)
        .def("close", &RecordingFile::close);
    py::class_<RecordingWriter>(module, "RecordingWriter")
        .def(py::init<const std::string&>())
        .def("write", &RecordingWriter::write)
        .def("commit", &RecordingWriter::commit)
        .def("abandon", &RecordingWriter::abandon);
}

}  // namespace scansteps::python
