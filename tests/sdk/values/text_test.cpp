#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nv/text.h>

#include <limits>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST(StringToVector, SplitsWithoutTrimming) {
    EXPECT_THAT(StringToVector("", ",", true), IsEmpty());
    EXPECT_THAT(StringToVector("a.nvz", ",", false), ElementsAre("a.nvz"));
    EXPECT_THAT(StringToVector("a, b,,c,", ",", false), ElementsAre("a", " b", "c"));
    EXPECT_THAT(StringToVector("a,,", ",", true), ElementsAre("a", "", ""));
    EXPECT_THAT(StringToVector("a--b", "--", false), ElementsAre("a", "b"));
    EXPECT_THAT(StringToVector("a,b", "", false), ElementsAre("a,b"));
}

TEST(ToInt, ReadsLeadingDigitsAndClamps) {
    EXPECT_EQ(nv::ToInt("17"), 17);
    EXPECT_EQ(nv::ToInt(" -4x"), -4);
    EXPECT_EQ(nv::ToInt(""), 0);
    EXPECT_EQ(nv::ToInt("seven"), 0);
    EXPECT_EQ(nv::ToInt("99999999999999999999999"), std::numeric_limits<int>::max());
    EXPECT_EQ(nv::ToInt("-2147483649"), std::numeric_limits<int>::min());
}

}  // namespace
