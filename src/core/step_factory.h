// How the exported functions make a step without seeing its class: every step file defines the factory of its
// kind with SCANSTEPS_FACTORY.
#pragma once

#include "scansteps/chain.h"

/// Stands in the module's namespace, after the class. C linkage, so that one name serves all namespaces.
#define SCANSTEPS_FACTORY(kind, Class)                      \
    extern "C" ::scansteps::cChain* scansteps_make_##kind() \
    {                                                       \
        return new Class;                                   \
    }
