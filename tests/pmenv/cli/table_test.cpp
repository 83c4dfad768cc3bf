// Table: columns that fit.
#include <optional>
#include <string>

#include <gtest/gtest.h>

#include "table.h"

namespace {

TEST(Table, CutsTheWidestColumnsFirst) {
    Table table({{"A"}, {"B", true}, {"C"}});
    table.add({"short", "12", std::string(40, 'x')});
    EXPECT_EQ(table.text(Style(-1), 30), "A       B  C\nshort  12  " + std::string(18, 'x') + "…\n");
    EXPECT_EQ(table.text(Style(-1), std::nullopt), "A       B  C\nshort  12  " + std::string(40, 'x') + "\n");
    EXPECT_EQ(table.text(Style(-1), 1), "A       B  C\nshort  12  xxxxx…\n") << "never narrower than can be read";
}

TEST(Table, CutsNoMoreThanNeeded) {
    Table table({{"A"}, {"B"}});
    table.add({std::string(10, 'a'), std::string(8, 'b')});
    EXPECT_EQ(table.text(Style(-1), 20), "A           B\naaaaaaaaaa  bbbbbbbb\n");
    EXPECT_EQ(table.text(Style(-1), 19), "A          B\naaaaaaaa…  bbbbbbbb\n");
    EXPECT_EQ(table.text(Style(-1), 16), "A        B\naaaaaa…  bbbbbb…\n");
}

// Without a terminal nothing is cut, and a long cell moves only what stands behind it.
TEST(Table, AVeryLongCellMovesOnlyItsOwnLine) {
    Table table({{"A"}, {"B", true}});
    table.add({std::string(70, 'x'), "1"});
    table.add({std::string(60, 'y'), "22"});
    table.add({"z", "333"});
    const std::string blanks(59, ' ');
    EXPECT_EQ(table.text(Style(-1), std::nullopt), "A" + blanks + "    B\n" + std::string(70, 'x') + "    1\n" +
                                                       std::string(60, 'y') + "   22\nz" + blanks + "  333\n");
}

TEST(Table, CellsCannotSteerTheTerminal) {
    Table table({{"NAME"}, {"B"}});
    table.add({"a\nb", "\x1b[2J"});
    EXPECT_EQ(table.text(Style(-1), std::nullopt), "NAME  B\na\\nb  \\x1b[2J\n");
}

}  // namespace
