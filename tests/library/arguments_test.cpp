// Texts that a container object has returned, passed back into its functions: every text argument of every function that
// writes a buffer, lying in every buffer that it could lie in. Each call must answer as it does for a text of the
// caller's own; the sanitizers see what is read after it was freed or overwritten.
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "EnvSettings.h"
#include "krenv.h"
#include "krresolve.h"
#include "support/LogCapture.h"
#include "support/ScopedEnv.h"
#include "support/Settings.h"
#include "support/TempDir.h"

namespace {

using Env = KREnvContainerClass;
using Arguments = std::vector<const char*>;

constexpr const char* kEnd = nullptr;

std::string orNull(const char* text) { return text != nullptr ? text : "<null>"; }

// --- where texts can lie --------------------------------------------------------------------------------------------

// The buffers in the order of the object's layout, which programs know.
constexpr struct {
    const char* name;
    std::size_t bytes;
} kBuffers[] = {
    {"m_szFound", 4096},    {"m_szUserDir", 4096},       {"m_szCwd", 4096},
    {"m_szDir", 4096},      {"m_szName", 4096},          {"m_szExt", 4096},
    {"m_szMadePath", 4096}, {"m_szResolvedValue", 2048}, {"m_szMyDocuments", 4096},
};
constexpr std::size_t kPlaces = std::size(kBuffers) + 1;

// Behind the buffers: the text that KRPResolvePathVarNoKREnv owns.
constexpr std::size_t kResolvedVar = std::size(kBuffers);

const char* nameOf(std::size_t place) { return place == kResolvedVar ? "m_pszResolvedVar" : kBuffers[place].name; }

char* bufferOf(Env& env, std::size_t place) {
    char* at = reinterpret_cast<char*>(&env) + sizeof(char*);
    for (std::size_t i = 0; i < place; ++i) at += kBuffers[i].bytes;
    return at;
}

// Puts `text` there, as if the object had returned it from there; null for the empty text where there is none.
const char* put(Env& env, std::size_t place, const char* text) {
    if (place != kResolvedVar) return std::strcpy(bufferOf(env, place), text);
    const ScopedEnv variable("KRENV_TEST_PUT", text);
    return env.KRPResolvePathVarNoKREnv("$KRENV_TEST_PUT");
}

// --- the functions --------------------------------------------------------------------------------------------------

struct Function {
    const char* name;
    Arguments usual;  // its text arguments
    std::function<std::string(Env&, const Arguments&)> call;
};

// The directory and the beginning of a name of tempnam's; the rest differs from call to call.
std::string beginningOf(const char* temporary) {
    return temporary != nullptr ? std::string(temporary).substr(0, std::string(temporary).rfind('/') + 4) : "<null>";
}

std::string fileInitTable(Env& env, const char* name) {
    int handle = 0;
    nEnvSettings::gFileInitTable(env, name, handle);
    const std::string value = orNull(KRSGetValue(handle, "ENGINE"));
    KRSDestroyTable(handle);
    return value;
}

std::string adjusted(Env& env, const char* path, int width) {
    char out[4096] = "untouched";
    return orNull(env.KRPAdjustPathLen(path, out, width)) + " " + out;
}

std::string fullName(Env& env, const char* path) {
    char out[4096] = "";
    return orNull(env.KRPGetFullName(path, out, sizeof out));
}

std::string parts(Env& env, const char* path) {
    char *dir = nullptr, *name = nullptr, *ext = nullptr;
    env.KRPSplitPath(path, &dir, &name, &ext);
    return orNull(dir) + "|" + orNull(name) + "|" + orNull(ext);
}

const std::vector<Function>& functions() {
    static const std::vector<Function> all = {
        {"KRESetEnvValue",
         {"NAME", "value"},
         [](Env& env, const Arguments& a) { return orNull(env.KRESetEnvValue(a[0], a[1])); }},
        {"KREGetEnvValue", {"B"}, [](Env& env, const Arguments& a) { return orNull(env.KREGetEnvValue(a[0])); }},
        {"KREGetEnv", {"B"}, [](Env& env, const Arguments& a) { return orNull(env.KREGetEnv(a[0])); }},
        {"KREEnvDefined",
         {"B", "value"},
         [](Env& env, const Arguments& a) { return std::to_string(env.KREEnvDefined(a[0], a[1], false)); }},
        {"KREEnvDefined, either case",
         {"B", "VALUE"},
         [](Env& env, const Arguments& a) { return std::to_string(env.KREEnvDefined(a[0], a[1], true)); }},
        {"KRERuntimeResolve",
         {"#(B)"},
         [](Env& env, const Arguments& a) { return orNull(env.KRERuntimeResolve(a[0])); }},
        {"KRPSplitPath", {"a/b.c"}, [](Env& env, const Arguments& a) { return parts(env, a[0]); }},
        {"KRPGetPathDirectory",
         {"a/b.c"},
         [](Env& env, const Arguments& a) { return orNull(env.KRPGetPathDirectory(a[0])); }},
        {"KRPGetPathName", {"a/b.c"}, [](Env& env, const Arguments& a) { return orNull(env.KRPGetPathName(a[0])); }},
        {"KRPGetPathExt", {"a/b.c"}, [](Env& env, const Arguments& a) { return orNull(env.KRPGetPathExt(a[0])); }},
        {"KRPMakePath",
         {"d", "n", "e"},
         [](Env& env, const Arguments& a) { return orNull(env.KRPMakePath(a[0], a[1], a[2])); }},
        {"KRPConcatDirAndName",
         {"d", "a/b.c"},
         [](Env& env, const Arguments& a) { return orNull(env.KRPConcatDirAndName(a[0], a[1])); }},
        {"KRPReplacePathExt",
         {"a/b.c", "e"},
         [](Env& env, const Arguments& a) { return orNull(env.KRPReplacePathExt(a[0], a[1])); }},
        {"KRPReplacePathName",
         {"a/b.c", "n"},
         [](Env& env, const Arguments& a) { return orNull(env.KRPReplacePathName(a[0], a[1])); }},
        {"KRPAdjustPathLen, short", {"a/b.c"}, [](Env& env, const Arguments& a) { return adjusted(env, a[0], 100); }},
        {"KRPAdjustPathLen, long",
         {"a/long/path/to/b.c"},
         [](Env& env, const Arguments& a) { return adjusted(env, a[0], 12); }},
        {"KRPResolvePathVarNoKREnv",
         {"$KRENV_TEST_DIR"},
         [](Env& env, const Arguments& a) { return orNull(env.KRPResolvePathVarNoKREnv(a[0])); }},
        {"KRPResolvePathVar",
         {"#LIST"},
         [](Env& env, const Arguments& a) { return orNull(env.KRPResolvePathVar(a[0])); }},
        {"searchInPath",
         {"x.ini", "a:b"},
         [](Env& env, const Arguments& a) { return orNull(env.searchInPath(a[0], a[1])); }},
        {"KRPSearchPath", {"x.ini"}, [](Env& env, const Arguments& a) { return orNull(env.KRPSearchPath(a[0])); }},
        {"KRPPathFileExist",
         {"b", "x.ini"},
         [](Env& env, const Arguments& a) { return orNull(env.KRPPathFileExist(a[0], a[1])); }},
        {"KRPFindfile",
         {"x.ini", "a", "#NONE", "b"},
         [](Env& env, const Arguments& a) { return orNull(env.KRPFindfile(a[0], a[1], a[2], a[3], kEnd)); }},
        {"KRPFindfileNoKREnv",
         {"x.ini", "a", "$KRENV_TEST_NONE", "b"},
         [](Env& env, const Arguments& a) { return orNull(env.KRPFindfileNoKREnv(a[0], a[1], a[2], a[3], kEnd)); }},
        {"KRPResolveFilePath",
         {"x.ini", "#LIST"},
         [](Env& env, const Arguments& a) { return orNull(env.KRPResolveFilePath(a[0], a[1])); }},
        {"KRPResolveFilePathNoKREnv",
         {"x.ini", "$KRENV_TEST_DIR"},
         [](Env& env, const Arguments& a) { return orNull(env.KRPResolveFilePathNoKREnv(a[0], a[1])); }},
        {"KRPGetFullName", {"x.ini"}, [](Env& env, const Arguments& a) { return fullName(env, a[0]); }},
        {"KRPFileExist",
         {"b/x.ini"},
         [](Env& env, const Arguments& a) {
             return std::to_string(env.KRPFileExist(a[0]) && env.KRPFileExist(a[0], true));
         }},
        {"KRPGetTempName",
         {"HOME"},
         [](Env& env, const Arguments& a) { return beginningOf(env.KRPGetTempName(a[0])); }},
        {"gFileInitTable", {"engine.ini"}, [](Env& env, const Arguments& a) { return fileInitTable(env, a[0]); }},
    };
    return all;
}

// --- the comparison -------------------------------------------------------------------------------------------------

// One argument that lies in the object.
struct Own {
    std::size_t argument;
    std::size_t place;
    const char* text;
};

enum class From { TheObject, TheCaller };

// What the call answers, and what it leaves in the object.
std::string answer(const Function& function, const std::vector<Own>& owns, From from) {
    Env env;
    Arguments arguments = function.usual;
    std::vector<std::string> copies(arguments.size());
    for (const Own& own : owns) arguments[own.argument] = put(env, own.place, own.text);
    if (from == From::TheCaller) {
        for (std::size_t i = 0; i < arguments.size(); ++i) {
            if (arguments[i] == nullptr) continue;
            copies[i] = arguments[i];
            arguments[i] = copies[i].c_str();
        }
    }
    std::string text = function.call(env, arguments);
    for (std::size_t place = 0; place < kResolvedVar; ++place) {
        text += std::string("\n  ") + nameOf(place) + " " + bufferOf(env, place);
    }
    return text;
}

void expectSameAnswer(const Function& function, const std::vector<Own>& owns) {
    std::string what = function.name;
    for (const Own& own : owns) {
        what += ", argument " + std::to_string(own.argument + 1) + " '" + own.text + "' in " + nameOf(own.place);
    }
    EXPECT_EQ(answer(function, owns, From::TheCaller), answer(function, owns, From::TheObject)) << what;
}

// Files in b and settings, so that each kind of text finds something.
class ArgumentsInTheObject : public testing::Test {
protected:
    void SetUp() override {
        dir.makeDirectory("a");
        dir.makeDirectory("b");
        dir.writeFile("b/x.ini");
        dir.writeFile("b/prog");
        dir.writeFile("b/engine.ini", "ENGINE = on\n");
    }

    const LogCapture log;  // what is refused is none of the matter
    const TempDir dir;
    const ScopedCwd cwd{dir.path()};
    const std::string b = dir / "b";
    const ScopedEnv home{"HOME", b.c_str()}, documents{"MYDOCUMENTS", b.c_str()}, path{"PATH", "a:b"};
    const ScopedEnv variable{"KRENV_TEST_DIR", "a:b"}, none{"KRENV_TEST_NONE", nullptr}, temporary{"TMPDIR", nullptr};
    const ScopedEnv here{"KRENV_TEST_HERE", "a"};
    const Settings settings{"B = a value\nLIST = a:b\nINCLUDE_PATH = b\nKR_BIN = b\nx.ini = B\n"};
};

}  // namespace

TEST_F(ArgumentsInTheObject, OneAtATime) {
    const std::string absolute = dir / "b/prog.x";
    for (const char* const text : {"x.ini", "b", "a/b/prog.x", absolute.c_str(), "$KRENV_TEST_DIR", "#LIST", "HOME",
                                   "MYDOCUMENTS", "PATH", "#(B)", "B", "value", "KRENV_TEST_DIR", "a:b", "."}) {
        for (const Function& function : functions()) {
            for (std::size_t argument = 0; argument < function.usual.size(); ++argument) {
                for (std::size_t place = 0; place < kPlaces; ++place) {
                    expectSameAnswer(function, {{argument, place, text}});
                }
            }
        }
    }
}

TEST_F(ArgumentsInTheObject, TwoAtATime) {
    for (const Function& function : functions()) {
        for (std::size_t first = 0; first < function.usual.size(); ++first) {
            for (std::size_t second = first + 1; second < function.usual.size(); ++second) {
                for (std::size_t one = 0; one < kPlaces; ++one) {
                    for (std::size_t other = 0; other < kPlaces; ++other) {
                        if (one == other) continue;
                        for (const char* const text : {"b/x.ini", "$KRENV_TEST_DIR", "b"}) {
                            expectSameAnswer(function, {{first, one, "x.ini"}, {second, other, text}});
                        }
                    }
                }
            }
        }
    }
}

// The text that a function returns is the next one's argument, as callers write it.

TEST_F(ArgumentsInTheObject, ASearchGoesOnBehindAVariableThatItHasRewritten) {
    Env env;
    EXPECT_EQ(b + "/x.ini", orNull(env.KRPFindfile("x.ini", env.KRPGetPathDirectory("a/prog"), b.c_str(), kEnd)));
    EXPECT_EQ("b/x.ini", orNull(env.KRPFindfile("x.ini", env.KRPResolvePathVar("$KRENV_TEST_HERE"), "b", kEnd)));
    EXPECT_EQ("b/x.ini", orNull(env.KRPFindfileNoKREnv("x.ini", env.KRPResolvePathVar("$KRENV_TEST_HERE"), "b", kEnd)));
}

TEST_F(ArgumentsInTheObject, ADirectoryOfTheLastSplitTakesAnotherName) {
    Env env;
    EXPECT_STREQ("/w/a/y.txt", env.KRPConcatDirAndName(env.KRPGetPathDirectory("/w/a/prog"), "y.txt"));
    EXPECT_EQ(b + "/x.ini", orNull(env.KRPPathFileExist(env.KRPGetPathDirectory((b + "/prog").c_str()), "x.ini")));
}
