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

}  // namespace
