// The class Record of the module.
#include "record.h"

#include <pybind11/stl.h>

#include <algorithm>
#include <cstring>

#include "errors.h"
#include "scansteps/chain.h"
#include "values.h"

namespace scansteps::python {

namespace {

std::vector<std::string> keysOf(const Record& record)
{
    std::vector<std::string> keys;
    for (const auto& entry : record.value().as<Struct>()) keys.push_back(entry.name);
    if (record.hasData()) keys.insert(std::lower_bound(keys.begin(), keys.end(), "data"), "data");
    return keys;
}

py::object item(const Record& record, const std::string& name)
{
    if (name == "data" && record.hasData()) return record.data();
    const varitype* value = record.value().as<Struct>().find(name);
    if (value == nullptr) throw py::key_error(name);
    return toPython(*value);
}

bool contains(const Record& record, const py::handle& name)
{
    if (!py::isinstance<py::str>(name)) return false;
    const std::string key = textFrom(name);
    return record.value().has(key) || (key == "data" && record.hasData());
}

void setItem(Record& record, const std::string& name, const py::object& value)
{
    if (name == "data" && !value.is_none()) {
        record.setFrame(value);
        return;
    }
    record.value().set(name, fromPython(value, name));
}

void removeItem(Record& record, const std::string& name)
{
    if (name == "data" && record.hasData())
        record.dropFrame();
    else if (!record.value().has(name))
        throw py::key_error(name);
    else
        record.value().remove(name);
}

py::bytes bytesOf(const Record& record)
{
    BIOmem memory;
    asErrors([&] { record.write(memory); });
    const auto bytes = memory.bytes();
    return py::bytes(reinterpret_cast<const char*>(bytes.data()), bytes.size());
}

std::unique_ptr<Record> fromBytes(const py::bytes& bytes)
{
    const std::string_view text = bytes;
    BIOmem memory(std::span(reinterpret_cast<const std::byte*>(text.data()), text.size()));
    std::unique_ptr<Record> record;
    asErrors([&] {
        record = Record::read(memory, {}, nullptr);
        if (!memory.atEnd()) throw "Read Error: bytes after the record";
    });
    return record;
}

}  // namespace

std::unique_ptr<Record> Record::read(BIO& source, const ReadLimits& limits,
                                     const std::shared_ptr<FramePool>& pool)
{
    Array spare = pool != nullptr ? pool->takeAny() : Array();
    varitype value = readRecord(source, limits, &spare);
    if (pool != nullptr) pool->give(std::move(spare));
    if (value.kind() != Kind::Struct || !value.hasPayload()) throw "Read Error: not a record";
    const varitype* data = value.as<Struct>().find("data");
    if (data == nullptr || data->kind() != Kind::Array || elementSize(data->as<Array>().kind()) == 0)
        return std::make_unique<Record>(std::move(value));
    Array pixels = std::move(value["data"].getv<Array>());
    value.remove("data");
    return std::make_unique<Record>(std::move(value), std::make_shared<FrameLease>(std::move(pixels), pool),
                                    0);
}

std::uint32_t Record::width() const
{
    if (width_ != 0) return width_;
    const varitype* width = value_.as<Struct>().find("dataX");
    return width != nullptr && width->kind() == Kind::Int
               ? std::uint32_t(std::max(width->as<std::int32_t>(), 0))
               : 0;
}

void Record::write(BIO& sink) const
{
    if (frame_ != nullptr)
        writeRecordWithFrame(sink, value_, frame_->pixels());
    else
        writeRecord(sink, value_);
}

void Record::setFrame(const py::object& array)
{
    if (array.is_none()) {
        frame_.reset();
        return;
    }
    width_ = py::len(array.attr("shape")) >= 2
                 ? array.attr("shape").cast<py::tuple>()[1].cast<std::uint32_t>()
                 : 0;
    frame_ = std::make_shared<FrameLease>(frameFrom(array), nullptr);
}

bool Record::hasData() const
{
    return frame_ != nullptr && !value_.has("handle");
}

py::object Record::frame() const
{
    if (frame_ == nullptr) return py::none();
    return frameView(frame_, width());
}

py::object Record::data() const
{
    return frameView(frame_, frame_->pixels().dim(0));
}

bool Record::equals(const Record& other) const
{
    const bool haveFrames = frame_ != nullptr;
    if (haveFrames != (other.frame_ != nullptr)) return false;
    if (haveFrames) {
        const Array &a = frame_->pixels(), &b = other.frame_->pixels();
        if (!a.sameShape(b) || !std::ranges::equal(a.bytes(), b.bytes())) return false;
    }
    varitype mine = value_.clone(), theirs = other.value_.clone();
    mine.remove("handle");
    theirs.remove("handle");
    return mine.equals(theirs);
}

void bindRecord(py::module_& module)
{
    py::class_<Record>(
        module, "Record",
        "One event: a mapping from names to values, and the frame.\n\n"
        "Values are int, float, str, numpy scalars, numpy arrays, dict and list of dict. Arrays are views; "
        "dicts and lists are copies: assign to the record to change it.")
        .def(py::init([](const py::dict& entries, const py::object& frame) {
                 auto record = std::make_unique<Record>();
                 for (const auto& [name, value] : entries)
                     setItem(*record, textFrom(name), py::reinterpret_borrow<py::object>(value));
                 if (!frame.is_none()) record->setFrame(frame);
                 return record;
             }),
             py::arg("entries") = py::dict(), py::arg("frame") = py::none())
        .def_property(
            "frame", &Record::frame, &Record::setFrame,
            "The pixels, (rows, columns) or (rows, columns, channels), without a copy; None without a frame. "
            "Assigning copies the array.")
        .def("__getitem__", &item)
        .def("__setitem__", &setItem)
        .def("__delitem__", &removeItem)
        .def("__contains__", &contains)
        .def("__len__", [](const Record& record) { return keysOf(record).size(); })
        .def("__iter__", [](const Record& record) { return py::iter(py::cast(keysOf(record))); })
        .def("keys", &keysOf)
        .def(
            "get",
            [](const Record& record, const std::string& name, const py::object& fallback) {
                return contains(record, py::str(name)) ? item(record, name) : fallback;
            },
            py::arg("name"), py::arg("default") = py::none())
        .def("items",
             [](const Record& record) {
                 py::list items;
                 for (const std::string& name : keysOf(record))
                     items.append(py::make_tuple(name, item(record, name)));
                 return items;
             })
        .def(
            "copy", [](const Record& record) { return fromBytes(bytesOf(record)); },
            "A record of its own, the frame included.")
        .def("to_bytes", &bytesOf,
             "The record in the form that recordings and connections use; the frame is its \"data\".")
        .def_static("from_bytes", &fromBytes, py::arg("bytes"))
        .def("__eq__",
             [](const Record& a, const py::object& b) -> py::object {
                 if (!py::isinstance<Record>(b)) return py::reinterpret_borrow<py::object>(Py_NotImplemented);
                 return py::bool_(a.equals(b.cast<const Record&>()));
             })
        .def(py::pickle([](const Record& record) { return bytesOf(record); },
                        [](const py::bytes& bytes) { return fromBytes(bytes); }));
}

}  // namespace scansteps::python
