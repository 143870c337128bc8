// Counting up and down in the digits of a file name.
#include "scansteps/numbered_name.h"

#include "support/test.h"

namespace scansteps {
namespace {

TEST(NumberedName, singleSteps)
{
    const struct
    {
        const char *from, *up;
        bool upWraps;
        const char* down;
        bool downWraps;
    } table[] = {
        {"img0000.jpg", "img0001.jpg", false, "img9999.jpg", true},
        {"img0009.jpg", "img0010.jpg", false, "img0008.jpg", false},
        {"img9999.jpg", "img0000.jpg", true, "img9998.jpg", false},
        {"a1/x9.jpg", "a2/x0.jpg", false, "a1/x8.jpg", false},
        {"a9/x9.jpg", "a0/x0.jpg", true, "a9/x8.jpg", false},
        {"a1/x0.jpg", "a1/x1.jpg", false, "a0/x9.jpg", false},
        {"f0010.jp2", "f0010.jp3", false, "f0010.jp1", false},
        {"out.ppm", "out.ppm", true, "out.ppm", true},
        {"", "", true, "", true},
    };
    for (const auto& row : table) {
        SCOPED_TRACE(row.from);
        std::string name = row.from;
        EXPECT_EQ(incrementName(name), row.upWraps);
        EXPECT_EQ(name, row.up);
        name = row.from;
        EXPECT_EQ(decrementName(name), row.downWraps);
        EXPECT_EQ(name, row.down);
    }
}

// Advancing by n must equal n single steps, including the wrap report of the last one.
TEST(NumberedName, manyStepsEqualSingleOnes)
{
    for (const std::string start : {"a0/b0.c0", "a4/b2.c7", "x", "7", "99", "1-2-3-4"})
        for (const int sign : {1, -1}) {
            std::string single = start;
            for (int n = 1; n <= 2500; ++n) {
                const bool wrapped = sign > 0 ? incrementName(single) : decrementName(single);
                std::string name = start;
                ASSERT_EQ(advanceName(name, sign * n), wrapped) << start << " " << sign * n;
                ASSERT_EQ(name, single) << start << " " << sign * n;
            }
        }
}

TEST(NumberedName, distancesAtTheEndsOfInt)
{
    std::string name = "0000000000";
    EXPECT_FALSE(advanceName(name, INT_MAX));
    EXPECT_EQ(name, "2147483647");
    EXPECT_TRUE(advanceName(name, INT_MIN));
    EXPECT_EQ(name, "9999999999");
}

}  // namespace
}  // namespace scansteps
