// Values of records as Python objects: numbers, str, dict, list of dict, and numpy arrays without a copy.
//
//   Int ↔ int, Float ↔ float, the other numbers ↔ numpy scalars (uint8, int16, float16, float64 ...), String
//   ↔ str, Struct ↔ dict, StructArray ↔ list of dict, Empty ↔ None, Array ↔ numpy array.
//
// An array of rowLength x rows x planes elements is a numpy array of shape (rows, rowLength) where there is
// one plane, else (rows, rowLength, planes).
#pragma once

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>

#include "scansteps/record.h"

namespace scansteps::python {

namespace py = pybind11;

/// Null for kinds that cannot be elements.
py::object dtypeOf(Kind kind);
/// Kind::Empty for an element type that arrays cannot have.
Kind kindOfDtype(const py::dtype& dtype);

/// A view of the elements that keeps `owner` alive.
py::array viewOf(Array& array, const py::object& owner);
/// Copies any array-like object. int64 becomes int32 where the values fit, bool becomes uint8. Throws
/// TypeError for other element types that arrays do not have and for more than three dimensions.
Array arrayFrom(const py::object& object, const char* where);

py::object toPython(const varitype& value);
/// Throws TypeError and OverflowError, which begin with `where`.
varitype fromPython(const py::handle& object, const std::string& where);
Struct structFrom(const py::dict& dict, const std::string& where);

/// UTF-8; bytes that are not UTF-8 are surrogates, as in file names.
py::str textOf(std::string_view text);
std::string textFrom(const py::handle& text);

}  // namespace scansteps::python
