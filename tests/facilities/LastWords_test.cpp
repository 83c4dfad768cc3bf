// What the facilities keep is there to the very end of the process.
#include <gmock/gmock.h>

#include "support/Subprocess.h"
#include "support/TempDir.h"

// The text of a failed load was destroyed with its thread's objects, before the static ones: a second failure in a
// destructor released it once more.
TEST(LastWords, ADestructorAtExitStillFindsWhatTheProgramHasSet) {
    const TempDir dir;
    const std::string settings = dir.writeFile("host.ini", "KEY = a value\n");
    // Whatever is freed is overwritten, so that nobody reads it by luck.
    const ProgramResult host =
        runProgram({LASTWORDS_HOST, settings}, {{"MALLOC_PERTURB_", "165"}, {"PM_LOG", "Error"}});
    EXPECT_EQ(0, host.status) << host.err;
    EXPECT_EQ(
        "a sink with memory of its own, which says: a record at exit\n"
        "an argument that is too long for a string without memory of its own\n"
        "/a/directory/that/is/too/long/for/a/string/without/memory\n"
        "/no/such/file/while/main/runs: cannot open the file: No such file or directory\n"
        "0 /no/such/file/of/a/destructor: cannot open the file: No such file or directory\n"
        "a value\n",
        host.out);
}
