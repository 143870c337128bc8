// Exceptions of the module, which are defined in scansteps/_errors.py.
#pragma once

#include <pybind11/pybind11.h>

#include <string>
#include <utility>

#include "scansteps/host.h"

namespace scansteps::python {

namespace py = pybind11;

struct ErrorPlace
{
    std::string step;  ///< "step 2 (ccanny)"
    std::string kind;
    std::int64_t frame = 0;  ///< 0: none
};

/// Raises scansteps.`name`(message, step, kind, frame).
[[noreturn]] void raise(const char* name, const std::string& message, const ErrorPlace& place = {});

/// Raises what the host library and steps throw as exceptions of the module.
template <class Work>
auto asErrors(Work work)
{
    try {
        return work();
    } catch (const char* text) {
        raise("FormatError", text);
    } catch (const host::UsageError& error) {
        raise("SettingsError", error.what());
    } catch (const host::FileError& error) {
        raise("FileError", error.what());
    }
}

}  // namespace scansteps::python
