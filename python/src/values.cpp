// Converts between values of records and Python objects.
#include "values.h"

#include <array>
#include <cstring>
#include <limits>
#include <memory>

namespace scansteps::python {

namespace {

struct Element
{
    Kind kind;
    const char* name;
};

constexpr Element kElements[] = {
    {Kind::Char, "int8"},     {Kind::Uchar, "uint8"},   {Kind::Short, "int16"},
    {Kind::Ushort, "uint16"}, {Kind::Int, "int32"},     {Kind::Uint, "uint32"},
    {Kind::Half, "float16"},  {Kind::Float, "float32"}, {Kind::Double, "float64"},
};

template <class T>
py::object scalarOf(Kind kind, T value)
{
    return py::array(py::reinterpret_borrow<py::dtype>(dtypeOf(kind)), std::vector<py::ssize_t>{}, &value)
        .attr("__getitem__")(py::tuple());
}

bool isNumpyScalar(const py::handle& object)
{
    static const py::object* const generic = new py::object(py::module_::import("numpy").attr("generic"));
    return py::isinstance(object, *generic);
}

[[noreturn]] void refuse(const std::string& where, const std::string& what)
{
    throw py::type_error(where + ": " + what);
}

varitype fromInt(const py::handle& object, const std::string& where)
{
    int overflow = 0;
    const long long value = PyLong_AsLongLongAndOverflow(object.ptr(), &overflow);
    if (value == -1 && PyErr_Occurred() != nullptr) throw py::error_already_set();
    using Limits = std::numeric_limits<std::int32_t>;
    if (overflow != 0 || value < Limits::min() || value > Limits::max()) {
        PyErr_Format(PyExc_OverflowError,
                     "%s: %R does not fit into 32 bits; numpy.uint32 and numpy.float64 hold more",
                     where.c_str(), object.ptr());
        throw py::error_already_set();
    }
    return static_cast<std::int32_t>(value);
}

template <class T>
varitype scalarFrom(const py::array& array)
{
    T value;
    std::memcpy(&value, array.data(), sizeof value);
    return value;
}

varitype fromNumpyScalar(const py::handle& object, const std::string& where)
{
    const py::array array = py::module_::import("numpy").attr("asarray")(object);
    switch (kindOfDtype(array.dtype())) {
        case Kind::Char:
            return scalarFrom<std::int8_t>(array);
        case Kind::Uchar:
            return scalarFrom<std::uint8_t>(array);
        case Kind::Short:
            return scalarFrom<std::int16_t>(array);
        case Kind::Ushort:
            return scalarFrom<std::uint16_t>(array);
        case Kind::Int:
            return scalarFrom<std::int32_t>(array);
        case Kind::Uint:
            return scalarFrom<std::uint32_t>(array);
        case Kind::Half:
            return scalarFrom<Half>(array);
        case Kind::Float:
            return scalarFrom<float>(array);
        case Kind::Double:
            return scalarFrom<double>(array);
        default:
            break;
    }
    const char kind = array.dtype().kind();
    if (kind == 'b' || kind == 'i' || kind == 'u') return fromInt(object.attr("__int__")(), where);
    refuse(where, "a record cannot hold a " + py::str(array.dtype()).cast<std::string>());
}

varitype fromSequence(const py::sequence& list, const std::string& where)
{
    StructArray elements;
    elements.reserve(list.size());
    for (std::size_t i = 0; i < list.size(); ++i) {
        const std::string place = where + "[" + std::to_string(i) + "]";
        const py::object element = list[i];
        if (!py::isinstance<py::dict>(element))
            refuse(place, "a list holds dicts only; numbers belong in a numpy array");
        elements.emplace_back(structFrom(element, place));
    }
    return elements;
}

// Structs nest no deeper than a recording may.
constexpr int kMaxDepth = 64;
thread_local int depth = 0;
struct Deeper
{
    explicit Deeper(const std::string& where)
    {
        if (depth >= kMaxDepth) throw py::value_error(where + ": nested too deeply");
        ++depth;
    }
    Deeper(const Deeper&) = delete;
    Deeper& operator=(const Deeper&) = delete;
    ~Deeper() { --depth; }
};

py::dict dictOf(const Struct& entries)
{
    py::dict dict;
    for (const auto& [name, value] : entries) dict[textOf(name)] = toPython(value);
    return dict;
}

}  // namespace

py::object dtypeOf(Kind kind)
{
    for (const Element& element : kElements)
        if (element.kind == kind) return py::dtype(element.name);
    return py::none();
}

Kind kindOfDtype(const py::dtype& dtype)
{
    if (!dtype.attr("isnative").cast<bool>()) return Kind::Empty;
    const char kind = dtype.kind();
    const auto size = dtype.itemsize();
    for (const Element& element : kElements) {
        const char code = element.name[0];
        if (code == kind && std::size_t(size) == elementSize(element.kind)) return element.kind;
    }
    return Kind::Empty;
}

py::array viewOf(Array& array, const py::object& owner)
{
    const py::dtype dtype = py::reinterpret_borrow<py::dtype>(dtypeOf(array.kind()));
    const auto size = py::ssize_t(elementSize(array.kind()));
    const py::ssize_t columns = array.dim(0), rows = array.dim(1), planes = array.dim(2);
    // An array without storage still needs an address.
    static std::byte nothing{};
    void* const data = array.data() != nullptr ? array.data() : &nothing;
    if (planes == 1) return py::array(dtype, {rows, columns}, {columns * size, size}, data, owner);
    return py::array(dtype, {rows, columns, planes}, {columns * size, size, rows * columns * size}, data,
                     owner);
}

Array arrayFrom(const py::object& object, const char* where)
{
    py::module_ numpy = py::module_::import("numpy");
    py::array array = numpy.attr("asarray")(object);
    const char kind = array.dtype().kind();
    if (kind == 'b')
        array = array.attr("astype")("uint8");
    else if (kindOfDtype(array.dtype()) == Kind::Empty && (kind == 'i' || kind == 'u') &&
             array.itemsize() == 8) {
        const py::object small = array.attr("astype")("int32");
        if (!numpy.attr("array_equal")(small, array).cast<bool>()) {
            PyErr_Format(PyExc_OverflowError, "%s: 64-bit integers that do not fit into 32 bits", where);
            throw py::error_already_set();
        }
        array = small;
    } else if (kindOfDtype(array.dtype()) == Kind::Empty && !array.dtype().attr("isnative").cast<bool>()) {
        array = array.attr("astype")(array.dtype().attr("newbyteorder")("="));
    }
    const Kind element = kindOfDtype(array.dtype());
    if (element == Kind::Empty)
        refuse(where, "an array cannot have elements of type " + py::str(array.dtype()).cast<std::string>());
    if (array.ndim() > 3) refuse(where, "an array has at most three dimensions");
    std::array<py::ssize_t, 3> shape = {1, 1, 1};  // rows, columns, planes
    const py::ssize_t first = array.ndim() < 2 ? 1 : 0;
    for (py::ssize_t i = 0; i < array.ndim(); ++i) shape[std::size_t(first + i)] = array.shape(i);
    for (const py::ssize_t length : shape)
        if (length > py::ssize_t(std::numeric_limits<std::uint32_t>::max()))
            refuse(where, "a dimension does not fit into 32 bits");
    Array result(element, std::uint32_t(shape[1]), std::uint32_t(shape[0]), std::uint32_t(shape[2]));
    if (result.byteSize() == 0) return result;
    // numpy copies whatever strides there are into a view of the new storage.
    const py::array view = viewOf(result, py::capsule(&result));
    view.attr("__setitem__")(py::ellipsis(), array.attr("reshape")(view.attr("shape")));
    return result;
}

py::object toPython(const varitype& value)
{
    switch (value.kind()) {
        case Kind::Empty:
            return py::none();
        case Kind::Int:
            return py::int_(value.as<std::int32_t>());
        case Kind::Float:
            return py::float_(double(value.as<float>()));
        case Kind::Char:
            return scalarOf(Kind::Char, value.as<std::int8_t>());
        case Kind::Uchar:
            return scalarOf(Kind::Uchar, value.as<std::uint8_t>());
        case Kind::Short:
            return scalarOf(Kind::Short, value.as<std::int16_t>());
        case Kind::Ushort:
            return scalarOf(Kind::Ushort, value.as<std::uint16_t>());
        case Kind::Uint:
            return scalarOf(Kind::Uint, value.as<std::uint32_t>());
        case Kind::Half:
            return scalarOf(Kind::Half, value.as<Half>());
        case Kind::Double:
            return scalarOf(Kind::Double, value.as<double>());
        case Kind::String:
            return textOf(value.as<std::string>());
        case Kind::Struct:
            return value.hasPayload() ? dictOf(value.as<Struct>()) : py::dict();
        case Kind::StructArray: {
            py::list list;
            for (const varitype& element : value.as<StructArray>()) list.append(toPython(element));
            return list;
        }
        case Kind::Array: {
            if (elementSize(value.as<Array>().kind()) == 0) return py::none();
            auto owner = std::make_unique<varitype>(value);
            Array& array = owner->getv<Array>();
            const py::capsule keeper(owner.release(),
                                     [](void* held) { delete static_cast<varitype*>(held); });
            return viewOf(array, keeper);
        }
    }
    return py::none();
}

varitype fromPython(const py::handle& object, const std::string& where)
{
    if (object.is_none()) return {};
    if (PyBool_Check(object.ptr())) return object.ptr() == Py_True ? 1 : 0;
    if (isNumpyScalar(object)) return fromNumpyScalar(object, where);
    if (PyLong_Check(object.ptr())) return fromInt(object, where);
    if (PyFloat_Check(object.ptr())) return float(PyFloat_AsDouble(object.ptr()));
    if (py::isinstance<py::str>(object)) return textFrom(object);
    if (py::isinstance<py::dict>(object)) return structFrom(py::reinterpret_borrow<py::dict>(object), where);
    if (py::isinstance<py::array>(object))
        return arrayFrom(py::reinterpret_borrow<py::object>(object), where.c_str());
    if (py::isinstance<py::list>(object) || py::isinstance<py::tuple>(object))
        return fromSequence(py::reinterpret_borrow<py::sequence>(object), where);
    refuse(where, std::string("a record cannot hold a ") + Py_TYPE(object.ptr())->tp_name);
}

Struct structFrom(const py::dict& dict, const std::string& where)
{
    const Deeper deeper(where);
    Struct result;
    for (const auto& [key, value] : dict) {
        if (!py::isinstance<py::str>(key)) refuse(where, "keys are strings");
        const std::string name = textFrom(key);
        result.set(name, fromPython(value, where.empty() ? name : where + "." + name));
    }
    return result;
}

py::str textOf(std::string_view text)
{
    PyObject* const object = PyUnicode_DecodeUTF8(text.data(), py::ssize_t(text.size()), "surrogateescape");
    if (object == nullptr) throw py::error_already_set();
    return py::reinterpret_steal<py::str>(object);
}

std::string textFrom(const py::handle& text)
{
    const auto bytes =
        py::reinterpret_steal<py::bytes>(PyUnicode_AsEncodedString(text.ptr(), "utf-8", "surrogateescape"));
    if (!bytes) throw py::error_already_set();
    return std::string(bytes);
}

}  // namespace scansteps::python
