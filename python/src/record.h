// Records as Python sees them: a mapping from names to values, and the frame.
#pragma once

#include <pybind11/pybind11.h>

#include <memory>
#include <string>

#include "frames.h"
#include "scansteps/record.h"
#include "scansteps/stream.h"

namespace scansteps::python {

namespace py = pybind11;

class Record
{
  public:
    explicit Record(varitype value = varitype(Struct{})) : value_(std::move(value)) {}
    Record(varitype value, std::shared_ptr<FrameLease> frame, std::uint32_t width)
        : value_(std::move(value)), frame_(std::move(frame)), width_(width)
    {
    }
    /// A record in its byte form; an entry "data" becomes the frame. `pool` may be null.
    static std::unique_ptr<Record> read(BIO& source, const ReadLimits& limits,
                                        const std::shared_ptr<FramePool>& pool);

    const varitype& value() const { return value_; }
    varitype& value() { return value_; }
    const std::shared_ptr<FrameLease>& lease() const { return frame_; }
    /// Pixels per row, 0 where unknown.
    std::uint32_t width() const;
    void write(BIO& sink) const;
    void setFrame(const py::object& array);
    /// Forgets a frame that went on without this record.
    void dropFrame() { frame_.reset(); }

    py::object frame() const;
    /// The frame without its channels told apart, as the entry "data" shows it.
    py::object data() const;
    bool hasData() const;
    bool equals(const Record& other) const;

  private:
    varitype value_;
    std::shared_ptr<FrameLease> frame_;
    std::uint32_t width_ = 0;
};

void bindRecord(py::module_& module);

}  // namespace scansteps::python
