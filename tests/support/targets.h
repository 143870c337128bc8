// Runs a check once for every instruction set that this machine and this build share, so that each
// vector variant is held against its scalar twin.
#pragma once

#include <gtest/gtest.h>

#include "hwy/targets.h"

namespace scansteps::test {

template <class Check>
void forEachTarget(Check check)
{
    for (const auto target : hwy::SupportedAndGeneratedTargets()) {
        SCOPED_TRACE(hwy::TargetName(target));
        hwy::SetSupportedTargetsForTest(target);
        check();
    }
    hwy::SetSupportedTargetsForTest(0);
}

}  // namespace scansteps::test
