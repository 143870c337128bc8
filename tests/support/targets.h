// Runs a check once for every instruction set that this machine and this build share, so that each
// vector variant is compared with its scalar version.
#pragma once

#include <gtest/gtest.h>

#include <iterator>
#include <tuple>

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

/// On every instruction set `vector` writes what `scalar` writes; both are called with (in, out, more...).
template <class Function, class In, class Out, class... More>
void expectTwins(Function* vector, Function* scalar, const In& in, const Out& out, const More&... more)
{
    Out expected = out;
    scalar(in, expected, more...);
    forEachTarget([&] {
        Out got = out;
        vector(in, got, more...);
        EXPECT_TRUE(got == expected) << "size " << std::size(in)
                                     << testing::PrintToString(std::tuple(more...));
    });
}

}  // namespace scansteps::test
