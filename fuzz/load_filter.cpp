// Passes any text to the load filter and the two resolvers, and compares them with the plain resolver of
// slowResolver.h. The settings and the process environment refer to each other in all forms.
#include "EnvSettings.h"
#include "environment.h"
#include "fileInMemory.h"
#include "fuzzing.h"
#include "krenv.h"
#include "krresolve.h"
#include "krs.h"
#include "slowResolver.h"

namespace {

constexpr char kSettings[] =
    "A = a\n"
    "B = <#(A)>\n"
    "C = #(C2)\n"
    "C2 = x#(C)\n"
    "Q = (A)\n"
    "E =\n"
    "N = #(E)#(E)\n"
    "V = $(X)$(Y)\n"
    "OPEN = $(\n"
    "BRACE = ${\n"
    "} = }\n"
    "A}#{B = swallowed\n";

int loadSettings() {
    hushLog();
    fuzzedEnvironment() = {{"X", "x"}, {"Y", "#(B)${X}"}, {"Z", "${Z}"}, {"W", "$(Z) #{A}"}, {"G", "#{A} ${Z}"}};
    FileInMemory::fill(kSettings);
    require(KRELoadIniFile(FileInMemory::path()) != 0, "the settings are loaded");
    return nEnvSettings::gPressmarkIniTable();
}

std::optional<std::string> lookUp(int table, char sign, const std::string& name) {
    if (sign == '$') return variableIn(fuzzedEnvironment(), name);
    const char* const value = KRSGetValue(table, name.c_str());
    return value != nullptr ? std::optional<std::string>(value) : std::nullopt;
}

void compare(const std::optional<std::string>& expected, const char* actual, const char* what) {
    if (expected.has_value() != (actual != nullptr)) fail(std::string(what) + (expected ? " succeeds" : " fails"));
    if (expected) requireEqual(*expected, actual, what);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const int table = loadSettings();
    const std::string text = std::string(textOf(data, size)).c_str();  // up to a NUL
    const auto find = [](char sign, const std::string& name) { return lookUp(table, sign, name); };

    compare(SlowResolver('{', '}', find)(text), KRSLoadFilter("KEY", text.c_str()), "the load filter");

    auto expected = SlowResolver('(', ')', find)(text);
    if (expected && expected->size() > 2047) expected.reset();
    KREnvContainerClass env;
    compare(expected, env.KRERuntimeResolve(text.c_str()), "the expansion");
    return 0;
}
