// Which change is made in this process, and which places it reaches: two files of the user, in a directory that everybody may
// read. Tests change the environment and replace functions of the C library, so neither is used.
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <string_view>

namespace switches {

namespace {
unsigned char nowhere[SWITCHES_COUNT];
}

int chosen = -1;
unsigned char* reached = nowhere;

namespace {

// "DIRECTORY/chosen.UID", as the user may be another for each of several runs at the same time.
struct Name {
    char text[200];

    explicit Name(std::string_view file) {
        char digits[16];
        int count = 0;
        auto user = static_cast<unsigned long>(syscall(SYS_getuid));
        do digits[count++] = static_cast<char>('0' + user % 10);
        while ((user /= 10) > 0);
        char* end = text;
        for (const char letter : std::string_view(SWITCHES_DIRECTORY "/")) *end++ = letter;
        for (const char letter : file) *end++ = letter;
        *end++ = '.';
        while (count > 0) *end++ = digits[--count];
        *end = '\0';
    }
};

void readChoice() {
    const long file = syscall(SYS_open, Name("chosen").text, O_RDONLY | O_CLOEXEC);
    if (file < 0) return;
    char text[16];
    const long bytes = syscall(SYS_read, file, text, sizeof text);
    syscall(SYS_close, file);
    if (bytes > 0) chosen = 0;
    for (long i = 0; i < bytes; ++i) chosen = chosen * 10 + text[i] - '0';
}

void shareReached() {
    const long file = syscall(SYS_open, Name("reached").text, O_RDWR | O_CLOEXEC);
    if (file < 0) return;
    const long memory = syscall(SYS_mmap, 0, SWITCHES_COUNT, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    syscall(SYS_close, file);
    if (memory > 0) reached = reinterpret_cast<unsigned char*>(memory);
}

// Before the objects of the program are made, which may have switches, too.
__attribute__((constructor(101))) void begin() {
    readChoice();
    shareReached();
}

}  // namespace
}  // namespace switches
