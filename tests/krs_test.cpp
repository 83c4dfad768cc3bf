#include "krs.h"

#include <gmock/gmock.h>

#include "support/LogCapture.h"
#include "support/ScopedEnv.h"
#include "support/TempDir.h"

TEST(SettingsTable, KeyAndValueAreTrimmed) {
    TempDir dir;
    const int table = KRSCreateTable();
    ASSERT_NE(0, KRSLoad(dir.writeFile("a.ini", "[S]\n  A\t=  b c \t\r\n").c_str(), table, nullptr)) << KRSLoadError();
    EXPECT_STREQ("b c", KRSGetValue(table, "S.A"));
    KRSDestroyTable(table);
    EXPECT_EQ(nullptr, KRSGetValue(table, "S.A"));
}
