// The reader of the kernel's files: kept and opened anew, what has gone, and what there is too much of.
#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <ctime>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include "kernel/files.h"
#include "support/OpenDescriptors.h"
#include "support/TempDir.h"

using namespace kernel;

namespace {

TEST(KeptFile, ReadsWhatItHoldsNow) {
    const TempDir dir;
    dir.writeFile("x", "one");
    KeptFile file(dir / "x");
    EXPECT_EQ(file.read(), "one");
    dir.writeFile("x", "three");
    EXPECT_EQ(file.read(), "three");
    dir.writeFile("x", "");
    EXPECT_EQ(file.read(), "");
}

TEST(KeptFile, IsKeptOpenAndClosedInTheEnd) {
    const TempDir dir;
    dir.writeFile("x", "one");
    const std::size_t before = OpenDescriptors::count();
    {
        KeptFile file(dir / "x");
        file.read();
        file.read();
        EXPECT_EQ(OpenDescriptors::count(), before + 1);
        const KeptFile moved(std::move(file));
        EXPECT_EQ(OpenDescriptors::count(), before + 1);
    }
    EXPECT_EQ(OpenDescriptors::count(), before);
}

// A second time it would close what has got its descriptor meanwhile.
TEST(KeptFile, IsClosedOnceWhereItWasMovedTo) {
    const TempDir dir;
    dir.writeFile("x", "one");
    const std::size_t before = OpenDescriptors::count();
    int other = -1;
    {
        KeptFile file(dir / "x");
        file.read();
        { const KeptFile moved(std::move(file)); }
        EXPECT_EQ(OpenDescriptors::count(), before);
        other = dup(STDOUT_FILENO);
    }
    EXPECT_NE(fcntl(other, F_GETFD), -1);
    close(other);
    KeptFile next(dir / "x");
    next.read();
    EXPECT_EQ(OpenDescriptors::count(), before + 1) << "it is kept, as no more are open than before";
}

TEST(KeptFile, TellsThatItsProcessHasEnded) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    const pid_t child = fork();
    if (child == 0) {
        char byte;
        close(ends[1]);
        _exit(read(ends[0], &byte, 1) == 0 ? 0 : 1);
    }
    close(ends[0]);
    KeptFile file("/proc/" + std::to_string(child) + "/stat");
    EXPECT_TRUE(file.read());
    close(ends[1]);
    waitpid(child, nullptr, 0);
    EXPECT_FALSE(file.read());
    EXPECT_TRUE(hasEnded(errno));
    EXPECT_FALSE(file.read());
    EXPECT_TRUE(hasEnded(errno));
}

TEST(KeptFile, ReadsWhatIsLongUpTo64KiB) {
    const TempDir dir;
    for (const auto& [length, read] : {std::pair(10000u, 10000u), std::pair(70000u, 65536u)}) {
        dir.writeFile("x", std::string(length, 'x'));
        EXPECT_EQ(KeptFile(dir / "x").read()->size(), read);
    }
}

std::vector<KeptFile> newFiles(std::size_t count) {
    std::vector<KeptFile> files;
    files.reserve(count);
    while (files.size() < count) files.emplace_back("/proc/self/stat");
    return files;
}

// With few descriptors left the files are opened anew each time.
TEST(KeptFile, ManyCanBeReadWithFewDescriptors) {
    const pid_t child = fork();
    if (child == 0) {
        const rlimit few{100, 100};
        setrlimit(RLIMIT_NOFILE, &few);
        allowManyFiles();
        std::vector<KeptFile> files = newFiles(1000);
        for (int round = 0; round < 2; ++round) {
            for (KeptFile& file : files) {
                if (!file.read()) _exit(1);
            }
        }
        _exit(OpenDescriptors::count() < 60 ? 0 : 2);
    }
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
}

// All but 256, which are for everything else.
TEST(KeptFile, AsManyAreKeptAsLeaveDescriptorsForOthers) {
    const struct {
        rlimit limit;
        int kept;
    } rows[] = {{{300, 300}, 44}, {{257, 257}, 1}, {{256, 256}, 0}, {{257, 400}, 144}};
    for (const auto& row : rows) {
        const pid_t child = fork();
        if (child == 0) {
            setrlimit(RLIMIT_NOFILE, &row.limit);
            allowManyFiles();
            rlimit now;
            if (getrlimit(RLIMIT_NOFILE, &now) != 0 || now.rlim_cur != row.limit.rlim_max) _exit(255);
            const std::size_t before = OpenDescriptors::count();
            for (int i = 0; i < 200; ++i) KeptFile("/proc/self/stat").read();  // and closes it again
            std::vector<KeptFile> files = newFiles(200);
            for (KeptFile& file : files) file.read();
            _exit(static_cast<int>(OpenDescriptors::count() - before));
        }
        int status = 0;
        waitpid(child, &status, 0);
        EXPECT_EQ(WEXITSTATUS(status), row.kept) << row.limit.rlim_cur << " of " << row.limit.rlim_max;
    }
}

TEST(ReadFile, TakesPiecesTogetherAndStopsAtTheLimit) {
    const TempDir dir;
    const std::string large(300000, 'x');
    dir.writeFile("x", large);
    EXPECT_EQ(readFile(dir / "x", 1 << 20), large);
    EXPECT_EQ(readFile(dir / "x", 100000)->size(), 100000u);
    EXPECT_EQ(readFile(dir / "x", 4097)->size(), 4097u);
    EXPECT_EQ(readFile(dir / "x", 0), "");
}

// The kernel gives many lines in pieces that are shorter than what is asked for, and each ends with a line.
TEST(ReadFile, APieceIsNotTheEnd) {
    constexpr std::size_t kPages = 400;
    const std::size_t page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    void* const area = mmap(nullptr, kPages * page, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(area, MAP_FAILED);
    for (std::size_t i = 0; i < kPages; i += 2) mprotect(static_cast<char*>(area) + i * page, page, PROT_READ);
    const auto text = readFile("/proc/self/maps");
    ASSERT_TRUE(text);
    EXPECT_GE(std::count(text->begin(), text->end(), '\n'), static_cast<std::ptrdiff_t>(kPages));
    munmap(area, kPages * page);
}

TEST(ReadFile, WhatCannotBeReadIsEmptyAndLeavesNothingOpen) {
    const TempDir dir;
    const std::size_t before = OpenDescriptors::count();
    EXPECT_FALSE(readFile(dir / "none"));
    EXPECT_TRUE(hasEnded(errno));
    EXPECT_FALSE(readFile(dir.path()));
    EXPECT_FALSE(hasEnded(errno));
    EXPECT_EQ(OpenDescriptors::count(), before);
}

// Where standard input is closed, the next file is opened as descriptor 0.
TEST(ReadFile, DescriptorZeroIsOneLikeOthers) {
    const TempDir dir;
    dir.writeFile("x", "one");
    const int before = dup(STDIN_FILENO);
    close(STDIN_FILENO);
    EXPECT_EQ(readFile(dir / "x"), "one");
    {
        KeptFile file(dir / "x");
        EXPECT_EQ(file.read(), "one");
        EXPECT_NE(fcntl(STDIN_FILENO, F_GETFD), -1) << "it is kept";
        const std::size_t open = OpenDescriptors::count();
        EXPECT_EQ(file.read(), "one");
        EXPECT_EQ(OpenDescriptors::count(), open);
    }
    EXPECT_EQ(fcntl(STDIN_FILENO, F_GETFD), -1) << "closed again";
    if (before < 0) return;
    dup2(before, STDIN_FILENO);
    close(before);
}

// What is read again after an error counts once among those that are kept.
TEST(KeptFile, ThatCannotBeReadAnyMoreIsKeptNoMore) {
    const pid_t child = fork();
    if (child == 0) {
        const rlimit limit{266, 266};
        setrlimit(RLIMIT_NOFILE, &limit);
        allowManyFiles();
        for (int i = 0; i < 100; ++i) {
            const TempDir dir;
            KeptFile folder(dir.path());  // reading it fails
            if (folder.read() || folder.read()) _exit(255);
        }
        const std::size_t before = OpenDescriptors::count();
        std::vector<KeptFile> files = newFiles(100);
        for (KeptFile& file : files) file.read();
        _exit(static_cast<int>(OpenDescriptors::count() - before));
    }
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_EQ(WEXITSTATUS(status), 10);
}

TEST(ClockSeconds, GoOn) {
    const double before = clockSeconds();
    EXPECT_GT(before, 0);
    usleep(20'000);
    EXPECT_GE(clockSeconds() - before, 0.020);
    EXPECT_LT(clockSeconds() - before, 60);
}

TEST(SecondsOfTicks, AreThoseOfTheHost) {
    EXPECT_EQ(secondsOfTicks(0), 0);
    EXPECT_EQ(secondsOfTicks(static_cast<std::uint64_t>(sysconf(_SC_CLK_TCK))), 1);
    EXPECT_EQ(secondsOfTicks(5 * static_cast<std::uint64_t>(sysconf(_SC_CLK_TCK))), 5);
}

TEST(OwnCpuSeconds, GrowWithWork) {
    const double before = ownCpuSeconds();
    const std::clock_t begin = std::clock();
    while (std::clock() - begin < CLOCKS_PER_SEC / 50) {
    }
    EXPECT_GT(ownCpuSeconds() - before, 0.010);
    EXPECT_LT(ownCpuSeconds() - before, 10);
}

TEST(ListNumbers, TakesWholeNumbersOnly) {
    const TempDir dir;
    for (const char* const name : {"12", "7", "x", "7x", "-7", "99999999999", ".hidden"}) dir.writeFile(name, "");
    auto numbers = listNumbers(dir.path());
    ASSERT_TRUE(numbers);
    std::sort(numbers->begin(), numbers->end());
    EXPECT_EQ(*numbers, (std::vector<int>{7, 12}));
    const std::size_t before = OpenDescriptors::count();
    EXPECT_FALSE(listNumbers(dir / "none"));
    listNumbers(dir.path());
    EXPECT_EQ(OpenDescriptors::count(), before);
}

TEST(CountDescriptors, CountsThisProcesss) {
    const auto before = countDescriptors(getpid());
    ASSERT_TRUE(before);
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    EXPECT_EQ(countDescriptors(getpid()), *before + 2);
    close(ends[0]);
    close(ends[1]);
    EXPECT_FALSE(countDescriptors(0)) << "there is no such process";
}

TEST(LinkTarget, IsEmptyForWhatIsNoLink) {
    EXPECT_NE(linkTarget("/proc/self/exe").find("test"), std::string::npos);
    EXPECT_EQ(linkTarget("/proc/self/stat"), "");
}

}  // namespace
