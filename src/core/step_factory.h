// How the exported factories make a step without including its header: every step file defines the factory of
// its class with SCANSTEPS_STEP.
#pragma once

#include <memory>

#include "scansteps/chain.h"

namespace scansteps {

template <class Step>
std::unique_ptr<cChain> makeStep();

#define SCANSTEPS_STEP(Class)                 \
    template <>                               \
    std::unique_ptr<cChain> makeStep<Class>() \
    {                                         \
        return std::make_unique<Class>();     \
    }

}  // namespace scansteps
