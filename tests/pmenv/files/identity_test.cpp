// pmenv identity: the eighteen values.
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "pmenv/PmenvTest.h"

using nlohmann::json;
using testing::StartsWith;

namespace {

using PmenvIdentity = Pmenv;

TEST_F(PmenvIdentity, ShowsAllEighteenValues) {
    const std::string file =
        directory_.writeFile("product.ini",
                             "PRODUCT_NAME = Pressmark\nPRODUCT_MESSAGE = a\tb\nPRODUCT_QUERY =\n"
                             "BMP_X_SIZE = 640px\nBMP_Y_SIZE = none\nPRODUCT_TYPE = 99999999999\n");
    const ProgramResult outcome = run({"identity", "product.ini"});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.err, "");
    EXPECT_EQ(outcome.out,
              "KEY                    VALUE\n"
              "PRODUCT_NAME           Pressmark\n"
              "PRODUCT_NAME_DISPLAY   (absent)\n"
              "PRODUCTS_LIST          (absent)\n"
              "PRODUCT_FILE_NAME      (absent)\n"
              "PRODUCT_VERSION        (absent)\n"
              "PRODUCT_VERSION_NAME   (absent)\n"
              "PRODUCT_MESSAGE        a\\tb\n"
              "PRODUCT_ERROR_MESSAGE  (absent)\n"
              "PRODUCT_QUERY\n"
              "EDITOR_TITLE           (absent)\n"
              "PRODUCT_INI_FILE       (absent)\n"
              "PRODUCT_INI_BACKUP     (absent)\n"
              "PRODUCT_HELP_FILE      (absent)\n"
              "PRODUCT_FRM_FILE       (absent)\n"
              "BMP_X_SIZE             640\n"
              "BMP_Y_SIZE             0\n"
              "PRODUCT_ICON_NUMBER    (absent)\n"
              "PRODUCT_TYPE           2147483647\n");
}

// Every key has its own value, so that none is answered by another's accessor.
TEST_F(PmenvIdentity, JsonHasEachValueUnderItsKey) {
    const Words texts{"PRODUCT_NAME",      "PRODUCT_NAME_DISPLAY", "PRODUCTS_LIST",    "PRODUCT_FILE_NAME",
                      "PRODUCT_VERSION",   "PRODUCT_VERSION_NAME", "PRODUCT_MESSAGE",  "PRODUCT_ERROR_MESSAGE",
                      "PRODUCT_QUERY",     "EDITOR_TITLE",         "PRODUCT_INI_FILE", "PRODUCT_INI_BACKUP",
                      "PRODUCT_HELP_FILE", "PRODUCT_FRM_FILE"};
    json expected;
    std::string content;
    for (const std::string& key : texts) {
        content += key + " = value of " + key + "\n";
        expected[key] = "value of " + key;
    }
    int number = -1;
    for (const char* const key : {"BMP_X_SIZE", "BMP_Y_SIZE", "PRODUCT_ICON_NUMBER", "PRODUCT_TYPE"}) {
        content += std::string(key) + " = " + std::to_string(++number) + "\n";
        expected[key] = number;
    }
    directory_.writeFile("product.ini", content);
    EXPECT_EQ(json::parse(run({"identity", "product.ini", "--json"}).out), expected);

    directory_.writeFile("product.ini", "PRODUCT_NAME = x\n");
    for (auto& value : expected) value = nullptr;
    expected["PRODUCT_NAME"] = "x";
    EXPECT_EQ(json::parse(run({"identity", "product.ini", "--json"}).out), expected);
}

TEST_F(PmenvIdentity, ShowsWhatIsWrongWithTheFile) {
    directory_.writeFile("product.ini", "PRODUCT_NAME = x\n[open\n");
    const ProgramResult outcome = run({"identity", "product.ini"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.out, "");
    EXPECT_THAT(outcome.err, StartsWith("pmenv: cannot load the identity: product.ini:2:"));
    EXPECT_EQ(run({"identity", "none.ini"}).err,
              "pmenv: cannot load the identity: none.ini: cannot open the file: No such file or directory\n");
}

}  // namespace
