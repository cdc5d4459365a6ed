#include "tools/cli/progress.h"

#include <gtest/gtest.h>

namespace korvane::tool {
namespace {

TEST(Progress, TimeLeftIsInProportionToWhatIsDone) {
    EXPECT_EQ(progress_line(80, 0.25, 12.4, 20, "", false),
              "[==========                              ]  25 % 12x real time, 1:00 left");
    EXPECT_EQ(progress_line(21, 0.5, 2, 3599.5, "", false), " 50 % 2.0x real time");
    EXPECT_TRUE(progress_line(99, 0.5, 2, 3600, "", false).ends_with("1:00:00 left"));
    EXPECT_TRUE(progress_line(99, 0.5, 2, 3598.1, "", false).ends_with(" 59:59 left"));
    // Nothing is known of what is left at the beginning, nor of a stream that has no end.
    EXPECT_TRUE(progress_line(99, 0, 2, 60, "", false).ends_with("real time"));
    EXPECT_EQ(progress_line(99, -1, 9.96, 60, "1/2 files", true), "10x real time, 1/2 files");
}

}  // namespace
}  // namespace korvane::tool
