// What the tests of registration share: prepared views, and transforms read from records.
#pragma once

#include "registration/register_views.h"
#include "support/test.h"
#include "support/warp.h"

namespace scansteps::test {

inline registration::PreparedView prepared(const std::vector<std::uint8_t>& grey)
{
    corners::CornerDetector detector;
    registration::PreparedView view;
    registration::prepareView(detector, {grey.data(), 640, 480, 640}, registration::registrationCorners(),
                              view);
    return view;
}

inline Eigen::Matrix3d matrixOf(const varitype& record, const char* key = "transform")
{
    const auto values = record[key].as<Array>().elements<float>();
    EXPECT_EQ(values.size(), 9U);
    Eigen::Matrix3d m;
    for (int i = 0; i < 9; ++i) m(i / 3, i % 3) = double(values[std::size_t(i)]);
    return m;
}

/// Warps without perspective.
inline WarpRange similarityRange()
{
    WarpRange range;
    range.perspective = 0;
    return range;
}

}  // namespace scansteps::test
