// Lets the exported functions create steps without seeing their classes: every step file defines its factory
// function with SCANSTEPS_FACTORY.
#pragma once

#include "scansteps/chain.h"

/// Used after the class, in its namespace. C linkage gives the function the same name in all namespaces.
// NOLINTBEGIN(bugprone-macro-parentheses): the arguments are names
#define SCANSTEPS_FACTORY(kind, Class)                      \
    extern "C" ::scansteps::cChain* scansteps_make_##kind() \
    {                                                       \
        return new Class;                                   \
    }
// NOLINTEND(bugprone-macro-parentheses)
