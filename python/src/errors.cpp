// Raises the exceptions of scansteps/_errors.py.
#include "errors.h"

namespace scansteps::python {

void raise(const char* name, const std::string& message, const ErrorPlace& place)
{
    const py::object type = py::module_::import("scansteps._errors").attr(name);
    const auto optional = [](const std::string& text) -> py::object {
        return text.empty() ? py::object(py::none()) : py::object(py::str(text));
    };
    const py::str text = py::reinterpret_steal<py::str>(
        PyUnicode_DecodeUTF8(message.data(), py::ssize_t(message.size()), "backslashreplace"));
    const py::object frame = place.frame > 0 ? py::object(py::int_(place.frame)) : py::object(py::none());
    PyErr_SetObject(type.ptr(), type(text, optional(place.step), optional(place.kind), frame).ptr());
    throw py::error_already_set();
}

}  // namespace scansteps::python
