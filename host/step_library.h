// The step library, loaded at run time as any host would do it.
#pragma once

#include <memory>
#include <string>

#include "exit_codes.h"
#include "platform.h"
#include "scansteps/chain.h"
#include "scansteps/handles.h"

namespace scansteps::host {

class StepLibrary
{
  public:
    /// Looks at `path` when it is given, else the variable SCANSTEPS_LIBRARY, beside the program, ../lib, the
    /// system's loader path. Throws FileError that says where it looked.
    explicit StepLibrary(const std::string& path);

    void setHandles(HandleTable* table) const;
    std::unique_ptr<cChain> create(const std::string& kind) const;

  private:
    template <class Function>
    Function* function(const std::string& name) const;

    std::unique_ptr<SharedLibrary> library_;
};

}  // namespace scansteps::host
