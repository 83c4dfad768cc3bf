// A program that loads the library after it has begun, uses it and unloads it again, as plug-ins make programs do.
//
//     dlopen_host LIBRARY DIRECTORY TIMES      DIRECTORY holds a pressmark.ini with a KEY
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <dlfcn.h>
#include <malloc.h>

// The address sanitizer's options: what is never released counts as leaked once the library that holds it is gone.
extern "C" const char* __asan_default_options();

const char* __asan_default_options() { return "detect_leaks=0"; }

namespace {

[[noreturn]] void fail(const char* what) {
    std::fprintf(stderr, "dlopen_host: %s\n", what);
    std::exit(1);
}

template <class Function>
Function function(void* library, const char* symbol) {
    void* const found = dlsym(library, symbol);
    if (found == nullptr) fail(dlerror());
    return reinterpret_cast<Function>(found);
}

void useOnce(const char* path, const char* directory) {
    void* const library = dlopen(path, RTLD_NOW);
    if (library == nullptr) fail(dlerror());
    if (function<int (*)(const char*)>(library, "_Z7KREInitPKc")(directory) != 1) fail("KREInit has failed");
    if (std::strncmp(function<char* (*)()>(library, "_Z12KRPGetOSInfov")(), "Linux", 5) != 0) fail("no system");
    if (dlclose(library) != 0) fail(dlerror());
    if (dlopen(path, RTLD_NOW | RTLD_NOLOAD) != nullptr) fail("the library is still loaded");
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 4) fail("LIBRARY DIRECTORY TIMES");
    const int times = std::atoi(argv[3]);
    std::size_t before = 0;
    for (int i = 0; i < times; ++i) {
        useOnce(argv[1], argv[2]);
        if (i == 0) before = mallinfo2().uordblks;
    }
    // The settings and the compiled references are never released, so that destructors may still read them.
    const std::size_t grown = (mallinfo2().uordblks - before) / static_cast<std::size_t>(times - 1);
    std::fprintf(stderr, "%zu bytes stay each time\n", grown);
    if (grown > std::size_t{16} * 1024) fail("that is more than the settings need");
    std::printf("loaded and unloaded %d times\n", times);
}
