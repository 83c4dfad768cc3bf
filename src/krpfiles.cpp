#include "krenv.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <memory>
#include <new>
#include <string>
#include <string_view>
#include <vector>

#include <dirent.h>
#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>

#include "ScratchBuffer.h"
#include "krenvLog.h"
#include "krenvState.h"

RWMutexLock gIniFileMutex;

namespace {

constexpr char kSourceFile[] = "../src/krpfiles";

constexpr std::size_t kPathBytes = 4096;  // the system's path limit, and the size of the object's path buffers
constexpr std::size_t kMaxPath = kPathBytes - 1;

// True when one of a function's arguments is null; each that is gets an Error record with the function's line alone.
bool anyNull(int line, std::initializer_list<const void*> arguments) {
    const auto nulls = std::count(arguments.begin(), arguments.end(), nullptr);
    for (auto i = nulls; i > 0; --i) KR_LOG_AT(Error, line);
    return nulls > 0;
}

// Copies `text` into a path buffer, cut where it does not fit.
void copyCut(char (&buffer)[kPathBytes], std::string_view text) {
    const std::size_t length = std::min(text.size(), kMaxPath);
    std::memmove(buffer, text.data(), length);
    buffer[length] = '\0';
}

// The environment variable `name` in a path buffer; null, with the buffer unchanged, when it is unset or does not fit.
// A part of it would be another directory.
const char* storeVariable(const char* name, char (&buffer)[kPathBytes]) {
    const char* const value = std::getenv(name);
    if (value == nullptr || std::strlen(value) > kMaxPath) return nullptr;
    copyCut(buffer, value);
    return buffer;
}

// A path in the making. It is composed beside the result buffer, so that one that does not fit leaves that buffer as it
// was, and the parts may lie in that buffer.
class PathComposition {
public:
    void append(std::string_view part) {
        fits_ = fits_ && part.size() <= kMaxPath - length_;
        if (!fits_) return;
        std::memcpy(text_ + length_, part.data(), part.size());
        length_ += part.size();
    }

    void append(char character) {
        fits_ = fits_ && length_ < kMaxPath;
        if (fits_) text_[length_++] = character;
    }

    bool endsInSlash() const { return length_ > 0 && text_[length_ - 1] == '/'; }

    // Puts the path into `buffer`; null when it is too long.
    const char* finish(char (&buffer)[kPathBytes]) const {
        if (!fits_) return nullptr;
        std::memcpy(buffer, text_, length_);
        buffer[length_] = '\0';
        return buffer;
    }

private:
    char text_[kPathBytes];
    std::size_t length_ = 0;
    bool fits_ = true;
};

// Where the last component of a path begins, behind the separator ("/" or "\") that stands furthest right.
std::size_t startOfLastComponent(std::string_view path) {
    std::size_t start = path.size();
    while (start > 0 && path[start - 1] != '/' && path[start - 1] != '\\') --start;
    return start;
}

// A path cut into its parts, apart from the object's buffers, because callers pass paths that lie in these.
class SplitPath {
public:
    explicit SplitPath(std::string_view path) {
        copyCut(text_, path);
        if (path.size() > kPathBytes) KR_LOG(Error);
        const std::string_view kept(text_, std::min(path.size(), kMaxPath));
        if (path.size() <= kMaxPath && KRPIsClosedFileADirectory(text_)) {
            dir = kept;
        } else {
            cut(kept);
        }
    }
    SplitPath(const SplitPath&) = delete;
    SplitPath& operator=(const SplitPath&) = delete;

    std::string_view dir = "";
    std::string_view name = "";
    std::string_view ext = "";

private:
    // At the last separator, and at the last dot behind it.
    void cut(std::string_view path) {
        const std::size_t start = startOfLastComponent(path);
        if (start > 0) dir = path.substr(0, start - 1);
        name = path.substr(start);
        const std::size_t dot = name.rfind('.');
        if (dot == name.npos) return;
        ext = name.substr(dot + 1);
        name = name.substr(0, dot);
    }

    char text_[kPathBytes];
};

// A copy of an argument, null included, for functions that rewrite the object's buffers before they have read it.
class KeptArgument {
public:
    explicit KeptArgument(const char* text) : isNull_(text == nullptr), text_(isNull_ ? "" : text) {}
    const char* get() const { return isNull_ ? nullptr : text_.c_str(); }

private:
    bool isNull_;
    std::string text_;
};

// The bit, not the whole file type, is what programs have always been told by: block devices and sockets share it.
bool hasDirectoryBit(mode_t mode) { return (mode & 0x4000) != 0; }

// Calls `use` with each existing directory of the ":"-separated `list`, from left to right, until it returns true.
template <class Use>
void forEachDirectory(const char* list, Use use) {
    const std::size_t size = std::strlen(list) + 1;
    ScratchBuffer copy(size);
    std::memcpy(copy.data(), list, size);
    char* rest = nullptr;
    for (char* entry = strtok_r(copy.data(), ":", &rest); entry != nullptr; entry = strtok_r(nullptr, ":", &rest)) {
        if (KRPIsClosedFileADirectory(entry) && use(entry)) return;
    }
}

bool endsList(const char* variable) { return variable == nullptr || *variable == '\0'; }

// The variables that follow `var` in an argument list, up to its end.
std::vector<std::string> variablesBehind(const char* var, std::va_list more) {
    std::vector<std::string> variables;
    while (!endsList(var)) {
        var = va_arg(more, const char*);
        if (!endsList(var)) variables.emplace_back(var);
    }
    return variables;
}

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

// The file operations throw nothing: without memory for its command or its text an operation is not done.
template <class Operation>
void unlessOutOfMemory(Operation operation) {
    try {
        operation();
    } catch (const std::bad_alloc&) {
    }
}

void removeTree(const char* path, const std::string& command) {
    KR_LOG(Trace) << "KRPRemoveAllDirectories before\t" << path << "\t" << command << "\t";
    const int status = std::system(command.c_str());
    KR_LOG(Trace) << "KRPRemoveAllDirectories after\t" << status << "\t" << path << "\t";
}

}  // namespace

// --- path texts -----------------------------------------------------------------------------------------------------

void KREnvContainerClass::KRPSplitPath(const char* path, char** dir, char** name, char** ext) {
    const SplitPath split(anyNull(__LINE__, {path}) ? "" : path);
    storeParts(split.dir, split.name, split.ext);
    if (dir != nullptr) *dir = m_szDir;
    if (name != nullptr) *name = m_szName;
    if (ext != nullptr) *ext = m_szExt;
}

void KREnvContainerClass::storeParts(std::string_view dir, std::string_view name, std::string_view ext) {
    copyCut(m_szDir, dir);
    copyCut(m_szName, name);
    copyCut(m_szExt, ext);
}

const char* KREnvContainerClass::KRPGetPathDirectory(const char* path) {
    KRPSplitPath(path, nullptr, nullptr, nullptr);
    return path != nullptr ? m_szDir : nullptr;
}

const char* KREnvContainerClass::KRPGetPathName(const char* path) {
    KRPSplitPath(path, nullptr, nullptr, nullptr);
    return path != nullptr ? m_szName : nullptr;
}

const char* KREnvContainerClass::KRPGetPathExt(const char* path) {
    KRPSplitPath(path, nullptr, nullptr, nullptr);
    return path != nullptr ? m_szExt : nullptr;
}

const char* KREnvContainerClass::KRPMakePath(const char* dir, const char* name, const char* ext) {
    return anyNull(__LINE__, {dir, name, ext}) ? nullptr : makePath(dir, name, ext);
}

const char* KREnvContainerClass::makePath(std::string_view dir, std::string_view name, std::string_view ext) {
    PathComposition path;
    // Without a directory the name goes on where the last composition ended: programs compose in steps that way.
    path.append(dir.empty() ? m_szMadePath : dir);
    if (!dir.empty() && !path.endsInSlash()) path.append('/');
    path.append(name);
    if (!ext.empty()) {
        path.append('.');
        path.append(ext);
    }
    const char* const made = path.finish(m_szMadePath);
    if (made == nullptr) KR_LOG(Error);
    return made;
}

// These three compose before they store the parts, because their arguments may be parts of the last split.

const char* KREnvContainerClass::KRPConcatDirAndName(const char* dir, const char* path) {
    if (anyNull(__LINE__, {dir, path})) return nullptr;
    const SplitPath split(path);
    const char* const made = makePath(dir, split.name, split.ext);
    storeParts(split.dir, split.name, split.ext);
    return made;
}

const char* KREnvContainerClass::KRPReplacePathExt(const char* path, const char* ext) {
    if (anyNull(__LINE__, {path, ext})) return nullptr;
    const SplitPath split(path);
    const char* const made = makePath(split.dir, split.name, ext);
    storeParts(split.dir, split.name, split.ext);
    return made;
}

const char* KREnvContainerClass::KRPReplacePathName(const char* path, const char* name) {
    if (anyNull(__LINE__, {path, name})) return nullptr;
    const SplitPath split(path);
    const char* const made = makePath(split.dir, name, split.ext);
    storeParts(split.dir, split.name, split.ext);
    return made;
}

char* KREnvContainerClass::KRPAdjustPathLen(const char* path, char* out, int maxLen) {
    if (anyNull(__LINE__, {path, out})) return nullptr;
    if (maxLen <= 0) KR_LOG(Error);

    const std::size_t length = std::strlen(path);
    // Compared as unsigned, so that a negative width means "whatever its length": the whole path is copied.
    if (length < static_cast<unsigned>(maxLen)) {
        std::memmove(out, path, length + 1);
        return out;
    }
    const SplitPath split(path);
    const int keep = maxLen - static_cast<int>(split.name.size()) - static_cast<int>(split.ext.size()) - 5;
    if (keep >= 0) {
        std::memmove(out, path, static_cast<std::size_t>(keep));
        char* end = out + keep;
        for (const std::string_view piece : {std::string_view("...\\"), split.name, std::string_view("."), split.ext}) {
            end = std::copy(piece.begin(), piece.end(), end);
        }
        *end = '\0';
    }
    storeParts(split.dir, split.name, split.ext);
    return keep >= 0 ? out : nullptr;
}

const char* KREnvContainerClass::KRPGetCwd() { return getcwd(m_szCwd, sizeof m_szCwd); }

char* KRPGetCurrentDir(char* buf, int size) {
    // getcwd would allocate for a null buffer, and take a negative size for a huge one.
    if (buf == nullptr || size <= 0) return nullptr;
    return getcwd(buf, static_cast<std::size_t>(size));
}

bool KRPAbsPath(const char* path, char* resolved, int /*size*/) {
    // realpath would allocate for a null buffer.
    return path != nullptr && resolved != nullptr && realpath(path, resolved) != nullptr;
}

// --- path variables and file search ---------------------------------------------------------------------------------

const char* KREnvContainerClass::KRPResolvePathVarNoKREnv(const char* var) {
    if (anyNull(__LINE__, {var}) || *var == '\0') return nullptr;

    const std::unique_ptr<char[]> previous(m_pszResolvedVar);  // released last: `var` may be that text
    m_pszResolvedVar = nullptr;
    const char* const value = valueOfPathVariable(var);
    if (value == nullptr || *value == '\0') return nullptr;

    const std::size_t size = std::strlen(value) + 1;
    m_pszResolvedVar = new char[size];
    std::memcpy(m_pszResolvedVar, value, size);
    return m_pszResolvedVar;
}

const char* KREnvContainerClass::valueOfPathVariable(const char* var) {
    if (std::strcmp(var, "PATH") == 0) return std::getenv("PATH");
    if (std::strcmp(var, "HOME") == 0) return KRPGetUserDir();
    if (std::strcmp(var, "MYDOCUMENTS") == 0) return KRPGetMyDocuments();
    if (*var == '$') return std::getenv(var + 1);
    return var;
}

const char* KREnvContainerClass::KRPResolvePathVar(const char* var) {
    if (anyNull(__LINE__, {var})) return nullptr;
    return *var == '#' ? KREGetEnv(var + 1) : KRPResolvePathVarNoKREnv(var);
}

const char* KREnvContainerClass::searchInPath(const char* name, const char* list) {
    if (list == nullptr) return nullptr;
    const KeptArgument keptName(name);
    const char* found = nullptr;
    forEachDirectory(list, [&](const char* directory) {
        const char* const candidate = KRPPathFileExist(directory, keptName.get());
        if (candidate == nullptr) return false;
        copyCut(m_szFound, candidate);
        found = m_szFound;
        return true;
    });
    return found;
}

const char* KREnvContainerClass::KRPSearchPath(const char* name) { return searchInPath(name, std::getenv("PATH")); }

const char* KREnvContainerClass::KRPPathFileExist(const char* dir, const char* name) {
    if (anyNull(__LINE__, {name}) || dir == nullptr) return nullptr;
    // Only the last component of `name` counts: "sub/x.txt" is looked for as "x.txt" in `dir`, on purpose.
    const char* const candidate = KRPConcatDirAndName(dir, name);
    return candidate != nullptr && KRPFileExist(candidate) ? candidate : nullptr;
}

const char* KREnvContainerClass::KRPFindfile(const char* name, const char* var, ...) {
    std::va_list more;
    va_start(more, var);
    const char* const found = findInVariables(name, var, &KREnvContainerClass::KRPResolvePathVar, more);
    va_end(more);
    return found;
}

const char* KREnvContainerClass::KRPFindfileNoKREnv(const char* name, const char* var, ...) {
    std::va_list more;
    va_start(more, var);
    const char* const found = findInVariables(name, var, &KREnvContainerClass::KRPResolvePathVarNoKREnv, more);
    va_end(more);
    return found;
}

// The first variable is always consulted, and ends the list itself when it is empty or null. All arguments are read
// before the search, because they may lie in buffers that it rewrites.
const char* KREnvContainerClass::findInVariables(const char* name, const char* var, ResolveVariable resolve,
                                                 std::va_list more) {
    const KeptArgument keptName(name);
    const std::vector<std::string> further = variablesBehind(var, more);
    const RWMutexLock::LockGuard lock(gIniFileMutex);
    const char* found = searchInPath(keptName.get(), (this->*resolve)(var));
    for (auto next = further.begin(); found == nullptr && next != further.end(); ++next) {
        found = searchInPath(keptName.get(), (this->*resolve)(next->c_str()));
    }
    return found;
}

const char* KREnvContainerClass::KRPResolveFilePath(const char* name, const char* var) {
    if (anyNull(__LINE__, {name, var})) return nullptr;
    const KeptArgument keptName(name);
    return placeInDirectory(keptName.get(), KRPResolvePathVar(var));
}

const char* KREnvContainerClass::KRPResolveFilePathNoKREnv(const char* name, const char* var) {
    if (anyNull(__LINE__, {name, var})) return nullptr;
    const KeptArgument keptName(name);
    return placeInDirectory(keptName.get(), KRPResolvePathVarNoKREnv(var));
}

const char* KREnvContainerClass::placeInDirectory(const char* name, const char* list) {
    if (list == nullptr) return nullptr;
    const char* place = nullptr;
    forEachDirectory(list, [&](const char* directory) {
        place = KRPConcatDirAndName(directory, name);
        return true;
    });
    return place;
}

char* KREnvContainerClass::KRPGetFullName(const char* path, char* out, int size) {
    const KeptArgument whole(path);
    const char* const dir = KRPGetPathDirectory(path);
    if (dir == nullptr || out == nullptr) return nullptr;
    return *dir != '\0' ? fullNameInDirectory(dir, out) : fullNameOfBareName(whole.get(), out, size);
}

// The name and the extension are those of the last split. `out` is taken to hold any path, whatever size its caller
// gave: programs pass sizes that mean something else here.
char* KREnvContainerClass::fullNameInDirectory(const char* dir, char* out) {
    char absoluteDir[kPathBytes];
    if (!KRPAbsPath(dir, absoluteDir, sizeof absoluteDir)) return nullptr;
    const char* const full = KRPMakePath(absoluteDir, m_szName, m_szExt);
    return full != nullptr ? std::strcpy(out, full) : nullptr;
}

char* KREnvContainerClass::fullNameOfBareName(const char* name, char* out, int size) {
    const char* const found = KRPFindfile(name, ".", "#INCLUDE_PATH", static_cast<const char*>(nullptr));
    if (found == nullptr || static_cast<int>(std::strlen(found)) > size) return nullptr;
    // Not tested: the file was there a moment ago, and what realpath could resolve is what the caller gets. Where it
    // has nothing (a working directory too deep for a path) that is an empty text.
    *out = '\0';
    static_cast<void>(KRPAbsPath(found, out, size));
    return out;
}

// --- file tests and the user's places -------------------------------------------------------------------------------

bool KREnvContainerClass::KRPFileExist(const char* path) { return KRPFileExist(path, false); }

// The flag once chose between kinds of files; callers still pass it, and it has no effect.
bool KREnvContainerClass::KRPFileExist(const char* path, bool /*flag*/) {
    struct stat status {};
    return path != nullptr && stat(path, &status) == 0;
}

bool KRPIsClosedFileADirectory(const char* path) {
    if (path == nullptr || *path == '\0') return false;
    struct stat status;  // filled where it is looked at
    return stat(path, &status) == 0 && hasDirectoryBit(status.st_mode);
}

bool KRPIsOpenFileADirectory(std::FILE* stream) {
    struct stat status {};
    return stream != nullptr && fstat(fileno(stream), &status) == 0 && hasDirectoryBit(status.st_mode);
}

int filelength(int fd) {
    const off_t current = lseek(fd, 0, SEEK_CUR);
    if (current < 0) return -1;
    const off_t length = lseek(fd, 0, SEEK_END);
    lseek(fd, current, SEEK_SET);
    // A length beyond 32 bits has no answer here and counts as a failed seek.
    return length <= INT32_MAX ? static_cast<int>(length) : -1;
}

const char* KREnvContainerClass::KRPGetUserDir() { return storeVariable("HOME", m_szUserDir); }

const char* KREnvContainerClass::KRPGetMyDocuments() { return storeVariable("MYDOCUMENTS", m_szMyDocuments); }

// --- file-system operations -----------------------------------------------------------------------------------------

bool KRPCreateDirectory(const char* path) {
    if (KREnvContainerClass().KRPFileExist(path)) return true;
    if (path == nullptr) {
        errno = EFAULT;  // what the system says of a path that it cannot read
    } else if (mkdir(path, 0777) == 0) {
        return true;
    }

    LogLastError("Failed to create dir");
    KR_LOG(Error) << "Failed to create directory " << path;
    return false;
}

void KRPRemoveAllDirectories(const char* path) {
    const bool mentionsTmp = path != nullptr && std::strstr(path, "/tmp") != nullptr;
    if (!mentionsTmp) KR_LOG(Error);  // reported, but no reason to stop
    if (path != nullptr) unlessOutOfMemory([&] { removeTree(path, "/bin/rm -fr " + argument(path)); });
}

bool KRPCopyFile(const char* from, const char* to) {
    if (from == nullptr || to == nullptr || strcasecmp(from, to) == 0) return false;
    if (!KREnvContainerClass().KRPFileExist(from)) return false;

    int status = -1;
    unlessOutOfMemory([&] {
        const std::string command = "/bin/cp " + quotedArgument(from) + " " + quotedArgument(to) + " > /dev/null";
        status = std::system(command.c_str());
    });
    return status == 0;
}

// --- places ---------------------------------------------------------------------------------------------------------

const char* KRPGetTempDirectory() {
    DIR* const opened = opendir("/tmp");
    if (opened == nullptr) return "";
    closedir(opened);
    return "/tmp";
}

// The linker warns that a name from tempnam may be taken by another process before its file is made. Callers are told
// so; they want a name and not a file, hence no mkstemp.
const char* KREnvContainerClass::KRPGetTempName(const char* var) {
    static char name[4096];
    const char* result = nullptr;
    unlessOutOfMemory([&] {
        const std::unique_ptr<char, decltype(&std::free)> picked(tempnam(KRPResolvePathVar(var), "tmp"), &std::free);
        if (picked == nullptr || std::strlen(picked.get()) >= sizeof name) return;
        result = std::strcpy(name, picked.get());
    });
    return result;
}

bool KRPChdir(const char* path) { return path != nullptr && chdir(path) == 0; }

// --- the last system error ------------------------------------------------------------------------------------------

void LogLastError(const char* what) {
    const int error = errno;
    char buffer[256];
    const char* const description = strerror_r(error, buffer, sizeof buffer);
    KR_LOG(Error) << what << ". Error: " << error << ":" << description;
}
