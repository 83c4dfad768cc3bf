// fleet in pmenv: it checks what was typed and becomes pmenv-fleet, for which a script stands here.
#include <filesystem>
#include <string>

#include "pmenv/PmenvTest.h"

using testing::HasSubstr;

namespace {

class PmenvFleet : public Pmenv {
protected:
    // A program that tells its name and arguments, and ends with 3.
    void addProgram(const std::string& directory) const {
        directory_.makeDirectory(directory);
        const std::string program = directory_.writeFile(
            directory + "/pmenv-fleet",
            "#!/bin/sh\nprintf '%s' '" + directory + "'\nprintf ' [%s]' \"$@\"\necho\necho told >&2\nexit 3\n");
        std::filesystem::permissions(program, std::filesystem::perms::owner_all);
    }

    std::string path() const { return directory_ / "path" + ":/usr/bin:/bin"; }

    ProgramResult fleet(Words words) const {
        words.insert(words.begin(), {"fleet", "--prometheus", "http://127.0.0.1:1", "--from", "-10m"});
        return run(words, {{"PATH", path()}});
    }
};

TEST_F(PmenvFleet, BecomesTheProgramWithTheSameArguments) {
    addProgram("path");
    const ProgramResult result =
        run({"--json", "fleet", "--from=-10m", "--prometheus", "http://a", "--job", "a b\n"}, {{"PATH", path()}});
    EXPECT_EQ(result.status, 3);
    EXPECT_EQ(result.out, "path [--json] [fleet] [--from=-10m] [--prometheus] [http://a] [--job] [a b\n]\n");
    EXPECT_EQ(result.err, "told\n");
}

TEST_F(PmenvFleet, PrefersTheProgramBesideItself) {
    addProgram("path");
    addProgram("beside");
    std::filesystem::copy_file(PMENV_BINARY, directory_ / "beside/pmenv");
    std::filesystem::create_symlink(directory_ / "beside/pmenv", directory_ / "link");
    for (const char* const pmenv : {"beside/pmenv", "link"}) {
        const ProgramResult result =
            runProgram({directory_ / pmenv, "fleet", "--prometheus", "http://a", "--from", "-10m"},
                       {{"PATH", path().c_str()}, {"LD_LIBRARY_PATH", KRENV_LIBRARIES}});
        EXPECT_EQ(result.status, 3) << result.err;
        EXPECT_THAT(result.out, HasSubstr("beside [fleet]")) << pmenv;
    }
}

TEST_F(PmenvFleet, SaysWhichPackageIsMissing) {
    const ProgramResult result = fleet({});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err,
              "pmenv: the program pmenv-fleet is neither beside pmenv nor in a directory of PATH; install the package "
              "pmenv-fleet\n");
}

TEST_F(PmenvFleet, SaysWhyTheProgramCannotBeStarted) {
    directory_.makeDirectory("path");
    directory_.writeFile("path/pmenv-fleet", "#!/bin/sh\n");  // not executable
    const ProgramResult result = fleet({});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err, "pmenv: cannot start pmenv-fleet: Permission denied\n");
}

TEST_F(PmenvFleet, RefusesWrongUsageAlsoWithoutTheProgram) {
    const ProgramResult result = fleet({"--to", "-20m"});
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.err, "pmenv: --from must lie before --to; see 'pmenv fleet --help'\n");
    EXPECT_EQ(fleet({"--percentile", "101"}).status, 2);
    EXPECT_EQ(run({"fleet", "--help"}, {{"PATH", path()}}).status, 0);
}

}  // namespace
