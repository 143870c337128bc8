// Pipelines driven from Python.
#pragma once

#include <pybind11/pybind11.h>

namespace scansteps::python {

void bindPipeline(pybind11::module_& module);

}  // namespace scansteps::python
