// exposition: the text form of figures for metrics collectors.
#include <optional>
#include <string>

#include <gtest/gtest.h>

#include "exposition.h"

namespace {

TEST(Exposition, LabelsHaveTheirQuotationMarks) {
    EXPECT_EQ(label("name", ""), "name=\"\"");
    EXPECT_EQ(label("name", "a\"b\\c\nd"), "name=\"a\\\"b\\\\\\\\c\\nd\"") << "a recording has \\\\ for a backslash";
}

TEST(Exposition, LabelsAreJoinedWhereThereAreTwo) {
    EXPECT_EQ(joinedLabels("", ""), "");
    EXPECT_EQ(joinedLabels("a=\"1\"", ""), "a=\"1\"");
    EXPECT_EQ(joinedLabels("", "b=\"2\""), "b=\"2\"");
    EXPECT_EQ(joinedLabels("a=\"1\"", "b=\"2\""), "a=\"1\",b=\"2\"");
}

TEST(Exposition, AMetricHasItsHeadingAndWhatIsKnown) {
    EXPECT_EQ(MetricNow("m", "gauge", "How much.").text(), "");
    EXPECT_EQ(MetricNow("m", "gauge", "How much.").add("a=\"1\"", std::nullopt).text(), "");
    EXPECT_EQ(MetricNow("m", "gauge", "How much.").add("", 0).add("a=\"1\"", std::nullopt).add("b=\"2\"", 0.1).text(),
              "# HELP m How much.\n# TYPE m gauge\nm 0\nm{b=\"2\"} 0.1\n");
    EXPECT_EQ(MetricNow("m", "gauge", "").add("", 123456789012345).add("", -1.23456789012345e-300).text(),
              "# HELP m \n# TYPE m gauge\nm 123456789012345\nm -1.23456789012345e-300\n");
}

TEST(Exposition, TheNewerFormHasTotalOnlyInTheNamesOfSamples) {
    EXPECT_EQ(asOpenMetrics("# HELP a_total How often; see b_total here.\n"
                            "# TYPE a_total counter\n"
                            "a_total 5\n"
                            "a_total{name=\"x_total y\"} 6\n"
                            "# HELP b How much of a_total there is.\n"
                            "# TYPE b gauge\n"
                            "b 1\n"
                            "# EOF\n"),
              "# HELP a How often; see b_total here.\n"
              "# TYPE a counter\n"
              "a_total 5\n"
              "a_total{name=\"x_total y\"} 6\n"
              "# HELP b How much of a_total there is.\n"
              "# TYPE b gauge\n"
              "b 1\n"
              "# EOF\n");
    EXPECT_EQ(asOpenMetrics(""), "");
}

}  // namespace
