#include <gtest/gtest.h>
#include <sstream>

#include "ctl/table.h"

namespace overseer::ctl {
namespace {

TEST(DisplayWidth, CountsColumnsNotBytes) {
    EXPECT_EQ(displayWidth("dimmer"), 6u);
    EXPECT_EQ(displayWidth("Türklingel"), 10u);
    EXPECT_EQ(displayWidth("Tu\u0308rklingel"), 10u) << "a combining mark takes no column";
    EXPECT_EQ(displayWidth("電灯"), 4u);
    EXPECT_EQ(displayWidth("a\xff"
                           "b"),
              3u);
    EXPECT_EQ(displayWidth("a\xc3"), 2u) << "a character cut off at the end";
}

TEST(Printable, LeavesNothingThatSteersATerminal) {
    EXPECT_EQ(printable("a\x1b[2Jb\n\x7f"), "a\\x1b[2Jb\\x0a\\x7f");
    EXPECT_EQ(printable("\u009b31m"), "\\x9b31m");
    EXPECT_EQ(printable("a\u202eb\u2028"), "a\\x202eb\\x2028") << "turned around, another line";
    EXPECT_EQ(printable("Gr\xf6\xdf"
                        "e\x9b"),
              "Gr\\xf6\\xdfe\\x9b")
        << "Latin-1";
    EXPECT_EQ(printable("Größe 電 💡"), "Größe 電 💡");
}

TEST(Table, AlignsAndColours) {
    Table table({{"FILE"}, {"MS", true}, {"OUTCOME"}});
    table.add({{"Türklingel.nvz"}, {"1200"}, {"failed", Colour::kRed}});
    table.add({{"電灯.nvi"}, {""}, {"current"}});
    table.add({{"a\x1b.nvi"}, {"7"}, {""}});
    std::ostringstream plain;
    table.print(plain, false);
    EXPECT_EQ(plain.str(),
              "FILE              MS  OUTCOME\n"
              "Türklingel.nvz  1200  failed\n"
              "電灯.nvi              current\n"
              "a\\x1b.nvi          7\n");
    std::ostringstream coloured;
    table.print(coloured, true);
    EXPECT_NE(coloured.str().find("1200  \x1b[31mfailed\x1b[0m\n"), std::string::npos);
}

}  // namespace
}  // namespace overseer::ctl
