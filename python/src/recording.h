// Recordings read and written from Python.
#pragma once

#include <pybind11/pybind11.h>

namespace scansteps::python {

void bindRecording(pybind11::module_& module);

}  // namespace scansteps::python
