// Steps written in Python, anywhere in a chain.
#pragma once

#include <pybind11/pybind11.h>

#include <cstdint>
#include <exception>
#include <memory>

#include "frames.h"
#include "scansteps/host.h"

namespace scansteps::python {

/// What the chain and its Python steps share.
struct StepContext
{
    std::exception_ptr thrown;  ///< raised by Python code in the current event
    std::shared_ptr<FramePool> pool = std::make_shared<FramePool>();
    std::int64_t copies = 0;  ///< frames that were copied because Python still held them
};

/// A pipeline step that calls `self`.init, .process and .flush.
host::PipelineStep pythonStep(const pybind11::object& self, std::shared_ptr<StepContext> context);

}  // namespace scansteps::python
