// The extension module scansteps._native, on which the package scansteps is built.
#include <pybind11/pybind11.h>

#include "pipeline.h"
#include "record.h"
#include "recording.h"

PYBIND11_MODULE(_native, module)
{
    scansteps::python::bindRecord(module);
    scansteps::python::bindPipeline(module);
    scansteps::python::bindRecording(module);
}
