// The name of a file that must exist, and does not.
#include <cerrno>
#include <cstring>

#include <sys/stat.h>

#include "check/rule.h"

namespace {

std::string problemOf(const std::string& path) {
    struct stat status {};
    if (stat(path.c_str(), &status) != 0) return std::strerror(errno);
    return S_ISDIR(status.st_mode) ? "it is a directory" : "";
}

void checkMissingFile(const Expansion& expansion, const SettingsText& settings, Report& report) {
    const std::optional<KnownValue> known = knownValue(expansion, settings);
    if (!known || known->key.type != KnownKey::Type::File || known->value.empty()) return;
    const std::string problem = problemOf(known->value);
    if (problem.empty()) return;
    report.atValue(*expansion.entry,
                   known->key.name + " needs a file: " + shownValue(known->value, known->hidden) + ": " + problem);
}

}  // namespace

Rule missingFileRule() {
    return {
        "missing-file",
        Rule::Severity::Error,
        "A setting that names a file which must exist, but does not exist on this host or is a directory. A relative "
        "name is looked up in the working directory, as a program that is started there would do.",
        "Correct the name, or create the file. Where the file is expected on other hosts only, describe the setting "
        "as a path.",
        "; http.HOSTS is known: a file that must exist\n[http]\nHOSTS = /etc/host\n",
        "; http.HOSTS is known: a file that must exist\n[http]\nHOSTS = /etc/hosts\n",
        checkMissingFile,
        Rule::DependsOn::Host,
        Rule::Needs::KnownKeys};
}
