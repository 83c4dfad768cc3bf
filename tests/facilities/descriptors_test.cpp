// How the facilities open files: what a program that they are loaded into, and the programs that this one starts, would
// otherwise notice.
#include <cstdarg>
#include <string>
#include <vector>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include "KrfExport.h"
#include "Logging.h"
#include "support/InChild.h"
#include "support/ScopedTable.h"

namespace {

struct Opened {
    std::string path;
    int flags;
    mode_t mode;
};
std::vector<Opened> g_opened;

template <class Real>
int noteOpening(Real real, const char* path, int flags, std::va_list more) {
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(more, mode_t) : 0;
    g_opened.push_back({path, flags, mode});
    return real(path, flags, mode);
}

// What is noted of `path`; nothing but that a test fails when it was not opened exactly once.
Opened openingOf(const std::string& path) {
    std::vector<Opened> found;
    for (const Opened& opened : g_opened) {
        if (opened.path == path) found.push_back(opened);
    }
    return found.size() == 1 ? found.front() : Opened{};
}

}  // namespace

extern "C" {
int __real_open(const char* path, int flags, ...);
KRF_EXPORT int __wrap_open(const char* path, int flags, ...) {
    std::va_list more;
    va_start(more, flags);
    const int descriptor = noteOpening(__real_open, path, flags, more);
    va_end(more);
    return descriptor;
}
int __real_open64(const char* path, int flags, ...);
KRF_EXPORT int __wrap_open64(const char* path, int flags, ...) {
    std::va_list more;
    va_start(more, flags);
    const int descriptor = noteOpening(__real_open64, path, flags, more);
    va_end(more);
    return descriptor;
}
}

// Commands do not inherit it, a terminal of that name does not become the program's, a pipe does not stop it.
constexpr int kHarmless = O_CLOEXEC | O_NOCTTY | O_NONBLOCK;

TEST(Descriptors, ASettingsFileIsOpenedWithoutConsequences) {
    const TempDir dir;
    const std::string path = dir.writeFile("a.ini", "A=1\n");
    const ScopedTable table;
    ASSERT_NE(0, KRSLoad(path.c_str(), table.handle(), nullptr));
    EXPECT_EQ(O_RDONLY | kHarmless, openingOf(path).flags & ~O_LARGEFILE);
}

// A program without standard input gets the descriptor 0 for the next file that is opened.
TEST(Descriptors, ASettingsFileIsReadAndClosedWithTheDescriptorOfStandardInput) {
    const TempDir dir;
    const std::string path = dir.writeFile("a.ini", "A=1\n");
    EXPECT_EQ("loaded 1, closed", inChild([&] {
                  close(STDIN_FILENO);
                  const ScopedTable table;
                  const int loaded = KRSLoad(path.c_str(), table.handle(), nullptr);
                  const bool closed = fcntl(STDIN_FILENO, F_GETFD) == -1;
                  return "loaded " + std::to_string(loaded) + (closed ? ", closed" : ", open");
              }));
}

TEST(Descriptors, ALogFileIsOpenedWithoutConsequencesAndMayBeReadByTheUsersGroup) {
    const TempDir dir;
    const std::string path = dir / "log";
    EXPECT_EQ("harmless, 666, 640", inChild([&] {
                  umask(027);
                  setenv("PM_LOG_FILE", path.c_str(), 1);
                  PM_LOG_RECORD(nLogging::Level::Error, "Descriptors", "test", 1) << "text";
                  const Opened log = openingOf(path);
                  const bool harmless = (log.flags & ~O_LARGEFILE) == (O_WRONLY | O_CREAT | O_APPEND | kHarmless);
                  struct stat status {};
                  stat(path.c_str(), &status);
                  char modes[32];
                  std::snprintf(modes, sizeof modes, ", %o, %o", log.mode, status.st_mode & 0777U);
                  return (harmless ? "harmless" : "flags " + std::to_string(log.flags)) + modes;
              }));
}
