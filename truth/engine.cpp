// A load engine that knows how late it is. It runs as PMLoadEngineMain, the name that load engines have.
//
//   PMLoadEngineMain record=FILE seconds=S [threads=N] [rate=R] [load=P] ...
//
// Each of its threads has `rate` requests a second, due at times that are fixed in advance: what is late does not put
// off what follows. A request takes processor time, `load` per cent of one processor for all requests of a thread, and is
// sent then. It is late by as much as it is sent after it was due, less the processor time that it takes itself. The words
// that change this:
//
//   together=1      all threads' requests are due at the same moments; else they are spread evenly
//   batch=N         N requests of a thread are due at the same moment, N times as seldom
//   cpu=N           runs on this processor only
//   pause=S every=S pause-by=sleep|spin|collector
//                   sends nothing for so long, so often: asleep, busy, or waiting for a thread named as a collector
//   slow-threads=N load-of-slow=P
//                   the first N threads have another load
//   helper=NAME     one more thread of this name is always busy and sends nothing; ~ stands for a blank
//   log=FILE bytes=N  a request ends with so much written to the file and to its disk
//   file=FILE pages=N a request reads so many pages of the file, at random, through a mapping
//   grow=M          so many megabytes more memory each second
//   hold=S          a request opens a connection, which stays open for so long; one that cannot be opened is not sent
//   descriptors=N   no more descriptors than these
//   own-ports=N     in a network of its own, with so many local ports
//   nice=N          has this priority
//   die=S           ends itself with SIGKILL after so long
#include <algorithm>
#include <cstring>
#include <deque>
#include <random>
#include <thread>
#include <vector>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <csignal>

#include "network.h"
#include "record.h"
#include "words.h"

namespace {

// --- time -----------------------------------------------------------------------------------------------------------

std::int64_t nanoseconds(double seconds) { return static_cast<std::int64_t>(seconds * 1e9); }

void sleepUntil(std::int64_t ns) {
    const timespec time = {static_cast<time_t>(ns / kNsPerSecond), static_cast<long>(ns % kNsPerSecond)};
    while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &time, nullptr) == EINTR) {
    }
}

std::int64_t processorNs() {
    timespec used{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &used);
    return used.tv_sec * kNsPerSecond + used.tv_nsec;
}

// Takes processor time, not time: what a slower or shared processor makes of it is what is to be seen.
void compute(std::int64_t ns) {
    const std::int64_t end = processorNs() + ns;
    while (processorNs() < end) {
    }
}

void fail(const std::string& what) { throw std::runtime_error(what + ": " + std::strerror(errno)); }

// --- what a request can do besides ----------------------------------------------------------------------------------

// Appends to a log, and waits until the disk has it.
class Log {
public:
    explicit Log(const Words& words) : text_(static_cast<std::size_t>(words.count("bytes", 4096)), 'l') {
        if (!words.has("log")) return;
        file_ = open(words.text("log").c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
        if (file_ < 0) fail(words.text("log"));
    }
    void write() const {
        if (file_ < 0) return;
        if (::write(file_, text_.data(), text_.size()) < 0 || fdatasync(file_) != 0) fail("the log");
    }

private:
    std::string text_;
    int file_ = -1;
};

// Reads pages of a file through a mapping, so that it depends on the memory that there is for it.
class MappedFile {
public:
    explicit MappedFile(const Words& words) : pages_(words.count("pages")) {
        if (!words.has("file")) return;
        const int file = open(words.text("file").c_str(), O_RDONLY | O_CLOEXEC);
        struct stat status {};
        if (file < 0 || fstat(file, &status) != 0) fail(words.text("file"));
        size_ = static_cast<std::size_t>(status.st_size);
        void* const memory = mmap(nullptr, size_, PROT_READ, MAP_SHARED, file, 0);
        close(file);
        if (memory == MAP_FAILED) fail(words.text("file"));
        madvise(memory, size_, MADV_RANDOM);
        memory_ = static_cast<const volatile char*>(memory);
    }
    void read(std::minstd_rand& random) const {
        for (int i = 0; memory_ != nullptr && i < pages_; ++i) static_cast<void>(memory_[random() % size_]);
    }

private:
    const volatile char* memory_ = nullptr;
    std::size_t size_ = 0;
    int pages_ = 0;
};

// Opens connections to a listener of the process's own, and keeps each of them for a while.
class Connections {
public:
    Connections(const Words& words, int port) : port_(port), holdNs_(nanoseconds(words.number("hold"))) {}

    // False when the system refuses another one.
    bool open(std::int64_t now) {
        if (port_ == 0) return true;
        closeUntil(now);
        const int connection = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        if (connection < 0) return false;
        // Closed without waiting, or its port would stay taken for another minute.
        const linger atOnce = {1, 0};
        setsockopt(connection, SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
        const sockaddr_in address = addressOf(port_);
        if (connect(connection, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
            close(connection);
            return false;
        }
        open_.push_back({connection, now + holdNs_});
        return true;
    }

    static sockaddr_in addressOf(int port) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(static_cast<std::uint16_t>(port));
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        return address;
    }

private:
    struct Connection {
        int descriptor;
        std::int64_t untilNs;
    };
    void closeUntil(std::int64_t now) {
        for (; !open_.empty() && open_.front().untilNs <= now; open_.pop_front()) close(open_.front().descriptor);
    }

    int port_;
    std::int64_t holdNs_;
    std::deque<Connection> open_;
};

// A process of its own takes the connections, so that its descriptors are not the engine's. The port's number.
int startListener() {
    const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = Connections::addressOf(0);
    socklen_t size = sizeof address;
    auto* const generic = reinterpret_cast<sockaddr*>(&address);
    if (listener < 0 || bind(listener, generic, size) != 0 || listen(listener, 4096) != 0) fail("the listener");
    getsockname(listener, generic, &size);
    if (fork() == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        prctl(PR_SET_NAME, "listener");
        for (;;) close(accept(listener, nullptr, nullptr));
    }
    close(listener);
    return ntohs(address.sin_port);
}

// --- the process ----------------------------------------------------------------------------------------------------

void runOn(int processor) {
    cpu_set_t set;
    CPU_ZERO(&set);
    CPU_SET(static_cast<std::size_t>(processor), &set);
    if (sched_setaffinity(0, sizeof set, &set) != 0) fail("cpu");
}

void limitDescriptors(rlim_t count) {
    const rlimit limit = {count, count};
    if (setrlimit(RLIMIT_NOFILE, &limit) != 0) fail("descriptors");
}

[[noreturn]] void growForever(double megabytesPerSecond) {
    constexpr double kStep = 0.05;
    const auto size = static_cast<std::size_t>(megabytesPerSecond * kStep * 1e6);
    for (std::int64_t next = nowNs();; next += nanoseconds(kStep)) {
        sleepUntil(next);
        auto* const more = new char[size];
        std::memset(more, 'g', size);
        asm volatile("" : : "r"(more) : "memory");  // it is to stay, though nobody reads it
    }
}

[[noreturn]] void beBusy(std::string name) {
    std::replace(name.begin(), name.end(), '~', ' ');
    prctl(PR_SET_NAME, name.c_str());
    for (volatile unsigned turns = 0;;) turns = turns + 1;
}

// --- what interrupts all threads ------------------------------------------------------------------------------------

class Pauses {
public:
    Pauses(const Words& words, std::int64_t startNs)
        : startNs_(startNs),
          lengthNs_(nanoseconds(words.number("pause"))),
          everyNs_(nanoseconds(words.number("every", 1))),
          by_(words.text("pause-by")) {}

    // Comes back when no pause is going on.
    void await() const {
        if (lengthNs_ == 0) return;
        const std::int64_t end = endAt(nowNs());
        if (by_ == "spin") {
            while (nowNs() < end) {
            }
        } else {
            sleepUntil(end);
        }
    }

    // The thread that works while the others wait.
    [[noreturn]] void collect() const {
        prctl(PR_SET_NAME, "GC Thread#0");
        for (;;) {
            while (nowNs() < endAt(nowNs())) {
            }
            sleepUntil(nowNs() + 1'000'000);
        }
    }
    bool byCollector() const { return by_ == "collector"; }

private:
    // When the pause that goes on at this time ends; the time itself when none does. Each ends a period.
    std::int64_t endAt(std::int64_t ns) const {
        const std::int64_t inPeriod = (ns - startNs_) % everyNs_;
        return inPeriod >= everyNs_ - lengthNs_ ? ns - inPeriod + everyNs_ : ns;
    }

    std::int64_t startNs_, lengthNs_, everyNs_;
    std::string by_;
};

// --- the requests ---------------------------------------------------------------------------------------------------

struct Engine {
    const Words& words;
    SharedRecord record{words.text("record")};
    std::int64_t startNs = nowNs() + nanoseconds(0.1);
    std::int64_t endNs = startNs + nanoseconds(words.number("seconds"));
    int threads = words.count("threads", 1);
    int batch = words.count("batch", 1);
    std::int64_t periodNs = nanoseconds(batch / words.number("rate", 100));
    int port = words.has("hold") ? startListener() : 0;
    Pauses pauses{words, startNs};
    Log log{words};
    MappedFile file{words};

    std::int64_t firstDueNs(int thread) const {
        return words.has("together") ? startNs : startNs + periodNs * thread / threads;
    }
    std::int64_t workNs(int thread) const {
        const bool slow = thread < words.count("slow-threads");
        const double load = slow ? words.number("load-of-slow") : words.number("load");
        return nanoseconds(load / 100 / words.number("rate", 100));
    }
    template <class Request>
    void forEachRequest(int thread, Request request) const {
        for (std::int64_t due = firstDueNs(thread); due < endNs; due += periodNs) {
            for (int i = 0; i < batch; ++i) request(due);
        }
    }
};

void noteWhatIsDue(const Engine& engine) {
    engine.record->startNs = engine.startNs;
    for (int thread = 0; thread < engine.threads; ++thread) {
        engine.forEachRequest(thread, [&](std::int64_t due) { engine.record->noteDue(due); });
    }
    engine.record->ready = 1;
}

void sendAll(const Engine& engine, int thread) {
    const std::int64_t workNs = engine.workNs(thread);
    std::minstd_rand random(static_cast<unsigned>(thread + 1));
    Connections connections(engine.words, engine.port);
    engine.forEachRequest(thread, [&](std::int64_t due) {
        sleepUntil(due);
        engine.pauses.await();
        engine.file.read(random);
        compute(workNs);
        const std::int64_t now = nowNs();
        if (connections.open(now)) engine.record->noteSent(due, now - workNs);
        engine.log.write();
    });
}

void setUp(const Words& words) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (words.has("cpu")) runOn(words.count("cpu"));
    if (words.has("nice") && setpriority(PRIO_PROCESS, 0, words.count("nice")) != 0) fail("nice");
    if (words.has("own-ports")) enterNetworkOf(words.count("own-ports"));
}

void startHelpers(const Engine& engine) {
    const Words& words = engine.words;
    const auto start = [](auto work) { std::thread(work).detach(); };
    if (words.has("helper")) start([&] { beBusy(words.text("helper")); });
    if (words.has("grow")) start([&] { growForever(words.number("grow")); });
    if (engine.pauses.byCollector()) start([&] { engine.pauses.collect(); });
    if (words.has("die")) {
        start([&] {
            sleepUntil(engine.startNs + nanoseconds(words.number("die")));
            raise(SIGKILL);
        });
    }
    if (words.has("descriptors")) limitDescriptors(static_cast<rlim_t>(words.count("descriptors")));
}

void run(const Words& words) {
    setUp(words);
    const Engine engine{words};
    noteWhatIsDue(engine);
    startHelpers(engine);
    std::vector<std::thread> threads;
    for (int i = 1; i < engine.threads; ++i) threads.emplace_back([&engine, i] { sendAll(engine, i); });
    sendAll(engine, 0);
    for (std::thread& thread : threads) thread.join();
}

Words wordsOf(int argc, char** argv) {
    std::string text;
    for (int i = 1; i < argc; ++i) text += std::string(argv[i]) + ' ';
    return Words(text);
}

}  // namespace

int main(int argc, char** argv) {
    try {
        run(wordsOf(argc, argv));
        std::_Exit(0);  // the helpers never end
    } catch (const std::exception& error) {
        std::fprintf(stderr, "PMLoadEngineMain: %s\n", error.what());
        return 2;
    }
}
