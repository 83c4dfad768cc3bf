#include "krenv.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>

#include <dirent.h>
#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>

#include "krenvLog.h"

namespace {

constexpr char kSourceFile[] = "../src/krpfiles";

// --- names in shell commands ----------------------------------------------------------------------------------------

// Everything else is either special to some shell or, beyond ASCII, a matter of its locale.
bool isHarmless(const char* name) {
    constexpr char kHarmless[] = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789/._-+,:@%=";
    return name[std::strspn(name, kHarmless)] == '\0';
}

// A blank, a newline, a pattern: between double quotes only these four mean something else than themselves.
bool isHarmlessInDoubleQuotes(const char* name) { return std::strpbrk(name, "\"$`\\") == nullptr; }

// The same file, by a name that no command takes for an option.
std::string withoutLeadingDash(const char* name) { return (name[0] == '-' ? "./" : "") + std::string(name); }

std::string inSingleQuotes(const std::string& name) {
    std::string quoted = "'";
    for (const char c : name) {
        if (c == '\'') {
            quoted += "'\\''";  // leaves the quotes for the one character that cannot stand between them
        } else {
            quoted += c;
        }
    }
    return quoted += "'";
}

std::string argument(const char* name) {
    const std::string operand = withoutLeadingDash(name);
    return isHarmless(name) ? operand : inSingleQuotes(operand);
}

std::string quotedArgument(const char* name) {
    const std::string operand = withoutLeadingDash(name);
    return isHarmlessInDoubleQuotes(name) ? '"' + operand + '"' : inSingleQuotes(operand);
}

}  // namespace

// --- directories and files ------------------------------------------------------------------------------------------

bool KRPCreateDirectory(const char* path) {
    if (path == nullptr) {
        KR_LOG(Error);
        return false;
    }
    if (KREnvContainerClass().KRPFileExist(path)) return true;
    if (::mkdir(path, 0777) == 0) return true;

    LogLastError("Failed to create dir");
    KR_LOG(Error) << "Failed to create directory " << path;
    return false;
}

void KRPRemoveAllDirectories(const char* path) {
    const bool mentionsTmp = path != nullptr && std::strstr(path, "/tmp") != nullptr;
    if (!mentionsTmp) KR_LOG(Error);  // reported, but no reason to stop
    if (path == nullptr) return;

    const std::string command = "/bin/rm -fr " + argument(path);
    KR_LOG(Trace) << "KRPRemoveAllDirectories before\t" << path << "\t" << command << "\t";
    const int status = std::system(command.c_str());
    KR_LOG(Trace) << "KRPRemoveAllDirectories after\t" << status << "\t" << path << "\t";
}

bool KRPCopyFile(const char* from, const char* to) {
    if (from == nullptr || to == nullptr) {
        KR_LOG(Error);
        return false;
    }
    if (::strcasecmp(from, to) == 0) return false;
    if (!KREnvContainerClass().KRPFileExist(from)) return false;

    const std::string command = "/bin/cp " + quotedArgument(from) + " " + quotedArgument(to) + " > /dev/null";
    return std::system(command.c_str()) == 0;
}

// --- places ---------------------------------------------------------------------------------------------------------

const char* KRPGetTempDirectory() {
    DIR* const opened = ::opendir("/tmp");
    if (opened == nullptr) return "";
    ::closedir(opened);
    return "/tmp";
}

// The linker warns that a name from tempnam may be taken by another process before its file is made. Callers are told
// so; they want a name and not a file, hence no mkstemp.
const char* KREnvContainerClass::KRPGetTempName(const char* var) {
    static char name[4096];
    const std::unique_ptr<char, decltype(&std::free)> picked(::tempnam(KRPResolvePathVar(var), "tmp"), &std::free);
    if (picked == nullptr || std::strlen(picked.get()) >= sizeof name) return nullptr;
    return std::strcpy(name, picked.get());
}

bool KRPChdir(const char* path) {
    if (path == nullptr) {
        KR_LOG(Error);
        return false;
    }
    return ::chdir(path) == 0;
}

// --- the last system error ------------------------------------------------------------------------------------------

void LogLastError(const char* what) {
    const int error = errno;
    char buffer[256];
    const char* const description = ::strerror_r(error, buffer, sizeof buffer);
    KR_LOG(Error) << what << ". Error: " << error << ":" << description;
}
