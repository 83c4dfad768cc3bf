#include "support/FaultSweep.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <exception>
#include <memory>
#include <new>
#include <set>
#include <sstream>

#include <fnmatch.h>
#include <unistd.h>

#include "Logging.h"
#include "krs.h"
#include "support/InChild.h"
#include "support/OpenDescriptors.h"

// Find blocks that nothing points to, and count the bytes of all, in builds with the address sanitizer.
extern "C" int __lsan_do_recoverable_leak_check() __attribute__((weak));
extern "C" std::size_t __sanitizer_get_current_allocated_bytes() __attribute__((weak));

const char* const kSame = "the same";

namespace {

// --- the files of the host ------------------------------------------------------------------------------------------

void writeProcess(const TempDir& dir, const std::string& pid) {
    dir.makeDirectory("proc/" + pid);
    dir.writeFile("proc/" + pid + "/stat", pid +
                                               " (PMLoadEngineMai) S 1 77 77 0 -1 4194560 1000 0 0 0 12 34 0 0 20 0 "
                                               "1 0 5000 2617344 400 0\n");
    dir.writeFile("proc/" + pid + "/statm", "600 400 300 1 0 200 0\n");
}

// Created once for all operations, which do not change it.
const TempDir& files() {
    static const TempDir dir;
    static const bool made = [] {
        for (const char* const name : {"bin", "docs", "home", "tree/a/b", "proc"}) dir.makeDirectory(name);
        dir.writeFile("bin/pressmark.ini",
                      "KR_VERSION = 7\nKR_BUILD = 42\nLONG = a value that needs a block of its own\n"
                      "LOADED = ${SOME_VARIABLE} and #{LONG}\nREAD = $(SOME_VARIABLE) and #(LONG)\n"
                      "CYCLE = #(CYCLE)\nOLD = old\nKR_BIN = " +
                          dir.path() + "/bin\nINCLUDE_PATH = " + dir.path() + "/docs\n");
        dir.writeFile("bin/product.ini", "PRODUCT_NAME = Pressmark, with a name that is not short\nBMP_X_SIZE = 640\n");
        dir.writeFile("bin/broken.ini", "KEY = value\nno equals sign\n");
        for (const char* const name : {"bin/file.txt", "docs/found.txt", "tree/1", "tree/a/2", "tree/a/b/3"})
            dir.writeFile(name, "text\n");
        dir.writeFile("proc/stat", "cpu  100 0 50 800 10 0 0 0 0 0\n");
        for (const char* const pid : {"77", "78"}) writeProcess(dir, pid);
        dir.writeFile("model", "model name\t: A processor with a name of some length\n");
        dir.writeFile("bits", "64\n");
        return true;
    }();
    static_cast<void>(made);
    return dir;
}

// In the child: sets its working directory and its surroundings.
void enterHost() {
    const std::string& dir = files().path();
    if (chdir(dir.c_str()) != 0) std::abort();
    for (const auto& [name, value] : std::map<std::string, std::string>{{"HOME", dir + "/home"},
                                                                        {"PATH", dir + "/home:" + dir + "/bin"},
                                                                        {"KR_BIN", dir + "/bin"},
                                                                        {"MYDOCUMENTS", dir + "/docs"},
                                                                        {"SOME_VARIABLE", "some text of the process"},
                                                                        {"PM_LOG", "all"}})
        setenv(name.c_str(), value.c_str(), 1);
    unsetenv("PM_LOG_FILE");
    unsetenv("TMPDIR");
    FaultBorder& border = FaultBorder::instance();
    border.proc = files() / "proc";
    border.output = {{"cat /proc/cpuinfo | grep \"model name\"", files() / "model"},
                     {"getconf LONG_BIT", files() / "bits"}};
}

void silenceLog() {
    for (int level = 0; level < 8; ++level) nLogging::gEnable(static_cast<nLogging::Level>(level), false);
}

// --- one run --------------------------------------------------------------------------------------------------------

std::string ask(const Operation& operation, Host& host) {
    Answer answer;
    try {
        const UnderTest scope;
        operation.run(host, answer);
    } catch (const std::bad_alloc&) {
        answer << "std::bad_alloc";
    } catch (const std::exception& error) {
        answer << "thrown:" << error.what();
    }
    return answer.text();
}

// The result of one run. The child sends it as lines.
struct Run {
    std::string answer;
    std::string buffer;      // content of the watched buffer
    std::string afterwards;  // the answer of the following call
    std::size_t blocks = 0;  // that stay allocated
    std::size_t bytes = 0;   // by which all memory has grown, where that is counted
    std::size_t descriptors = 0;
    bool reached = false;
    bool leaks = false;
    std::map<std::string, int> calls = {};

    std::string text() const {
        std::ostringstream lines;
        lines << answer << '\n' << buffer << '\n' << afterwards << '\n';
        lines << blocks << ' ' << bytes << ' ' << descriptors << ' ' << reached << ' ' << leaks;
        for (const auto& [function, count] : calls) lines << ' ' << function << ' ' << count;
        return lines.str();
    }
};

Run parseRun(const std::string& text) {
    Run run;
    std::istringstream lines(text);
    std::getline(lines, run.answer);
    std::getline(lines, run.buffer);
    std::getline(lines, run.afterwards);
    if (!(lines >> run.blocks >> run.bytes >> run.descriptors >> run.reached >> run.leaks))
        run.answer = text;  // it crashed
    std::string function;
    for (int count = 0; lines >> function >> count;) run.calls[function] = count;
    return run;
}

std::string bufferText(const char* buffer) { return buffer != nullptr ? (Answer() << buffer).text() : ""; }

// Creates the texts that a process keeps from its first failure on, so that the runs can be compared.
void failALoad() {
    const UnderTest scope;
    KRSLoad("/there/is/no/file/of/this/name.ini", 0, nullptr);
}

std::size_t allocatedBytes() {
    return __sanitizer_get_current_allocated_bytes != nullptr ? __sanitizer_get_current_allocated_bytes() : 0;
}

// Looking for leaks takes three quarters of all time. A run that leaves as many bytes behind as one without leaks has
// left the same ones.
using Sizes = std::set<std::size_t>;

bool leaks(std::size_t bytesLeft, const Sizes& cleanSizes) {
    return __lsan_do_recoverable_leak_check != nullptr && cleanSizes.count(bytesLeft) == 0 &&
           __lsan_do_recoverable_leak_check() != 0;
}

// Runs the operation twice in a process that has done nothing before. The first run meets the fault, if there is one.
Run runInChild(const Operation& operation, bool logs, const Fault* fault, int nth, bool lasting,
               const Sizes& cleanSizes) {
    return parseRun(inHost([&] {
        alarm(60);
        const std::size_t bytesBefore = allocatedBytes();
        if (!logs) silenceLog();
        Host host;
        Run run;
        const char* const buffer = operation.prepare ? operation.prepare(host) : nullptr;
        const std::size_t before = OpenDescriptors::count();
        if (fault != nullptr) {
            const Injection injection(*fault, nth, lasting);
            run.answer = ask(operation, host);
            run.reached = injection.reached();
        } else {
            const auto& counted = UnderTest::calls();
            run.answer = ask(operation, host);
            run.calls = counted;
        }
        run.descriptors = OpenDescriptors::count() - before;
        run.buffer = bufferText(buffer);
        run.afterwards = ask(operation, host);
        failALoad();
        run.blocks = UnderTest::liveBlocks();
        closeDirectoriesLeftOpen();
        run.bytes = allocatedBytes() - bytesBefore;
        run.leaks = leaks(run.bytes, cleanSizes);
        return run.text();
    }));
}

std::string oldBuffer(const Operation& operation) {
    if (!operation.prepare) return {};
    return inHost([&] {
        Host host;
        return bufferText(operation.prepare(host));
    });
}

// --- what is allowed ------------------------------------------------------------------------------------------------

std::vector<std::string> permitted(const Operation& operation, const Fault& fault) {
    const std::string function = fault.function;
    for (const std::string& key : {function + " " + fault.manner, function}) {
        const auto found = operation.onFault.find(key);
        if (found != operation.onFault.end()) return found->second;
    }
    if (function == "new") return {kSame, "std::bad_alloc"};
    return {kSame};
}

bool isAmong(const std::vector<std::string>& allowed, const std::string& answer, const std::string& same) {
    return std::any_of(allowed.begin(), allowed.end(), [&](const std::string& one) {
        return one == kSame ? answer == same : fnmatch(one.c_str(), answer.c_str(), 0) == 0;
    });
}

std::string listed(const std::vector<std::string>& texts) {
    std::string list;
    for (const std::string& text : texts) list += (list.empty() ? "'" : " or '") + text + "'";
    return list;
}

class Sweep {
public:
    Sweep(const Operation& operation, bool logs)
        : operation_(operation),
          logs_(logs),
          old_(oldBuffer(operation)),
          reference_(runInChild(operation, logs, nullptr, 0, false, cleanSizes_)) {
        if (!isAmong(operation_.afterwards, reference_.afterwards, reference_.answer))
            complain("without a fault", "answers '" + reference_.answer + "', then '" + reference_.afterwards + "'");
    }

    SweepResult everyCall() {
        for (const Fault& fault : faultsMet()) {
            failEach(fault, false);
            if (fault.lasts) failEach(fault, true);
        }
        return result_;
    }

    SweepResult firstCalls() {
        for (const Fault& fault : faultsMet()) fail(fault, 1, fault.lasts);
        return result_;
    }

private:
    std::vector<Fault> faultsMet() {
        std::vector<Fault> met;
        for (const Fault& fault : allFaults()) {
            if (reference_.calls[fault.function] > 0) met.push_back(fault);
        }
        return met;
    }

    void failEach(const Fault& fault, bool lasting) {
        for (int nth = 1; fail(fault, nth, lasting); ++nth) {
        }
    }

    // False when the operation makes fewer calls than that.
    bool fail(const Fault& fault, int nth, bool lasting) {
        const Run run = runInChild(operation_, logs_, &fault, nth, lasting, cleanSizes_);
        const std::string where = std::string(fault.function) + " " + fault.manner + " at call " + std::to_string(nth) +
                                  (lasting ? " and later" : "");
        check(where, fault, run);
        if (run.reached) ++result_.injected;
        return run.reached;
    }

    void check(const std::string& where, const Fault& fault, const Run& run) {
        const auto answers = run.reached ? permitted(operation_, fault) : std::vector<std::string>{kSame};
        if (!isAmong(answers, run.answer, reference_.answer))
            complain(where, "answers '" + run.answer + "' instead of " + listed(answers));
        if (run.buffer != old_ && run.buffer != reference_.buffer && run.buffer != run.answer)
            complain(where, "leaves '" + run.buffer + "' in the buffer");
        if (!isAmong(operation_.afterwards, run.afterwards, reference_.answer))
            complain(where, "is followed by '" + run.afterwards + "'");
        if (run.blocks > reference_.blocks)
            complain(where, "keeps " + std::to_string(run.blocks - reference_.blocks) + " more blocks");
        if (run.descriptors > operation_.leavesOpen)
            complain(where, "leaves " + std::to_string(run.descriptors) + " descriptors open");
        if (run.leaks) complain(where, "leaks");
        if (!run.leaks) cleanSizes_.insert(run.bytes);
    }

    void complain(const std::string& where, const std::string& what) {
        result_.problems.push_back(operation_.shows.front() + ", " + where + ": " + what);
    }

    const Operation& operation_;
    const bool logs_;
    const std::string old_;
    Sizes cleanSizes_;  // that runs without leaks left behind
    Run reference_;
    SweepResult result_;
};

}  // namespace

// The files are made before the child, which ends without cleaning up.
std::string inHost(const std::function<std::string()>& work) {
    files();
    return inChild([&] {
        enterHost();
        return work();
    });
}

// --- answers and hosts ----------------------------------------------------------------------------------------------

Answer& Answer::operator<<(const char* text) {
    const Undisturbed own;
    std::string shown = text != nullptr ? text : "null";
    const std::string& dir = files().path();
    for (std::size_t at = 0; (at = shown.find(dir)) != std::string::npos;) shown.replace(at, dir.size(), "@");
    std::replace(shown.begin(), shown.end(), '\n', '|');
    text_ += (text_.empty() ? "" : " ") + shown;
    return *this;
}

Answer& Answer::operator<<(int value) {
    const Undisturbed own;
    return *this << std::to_string(value);
}

Answer& Answer::operator<<(long double value) {
    const Undisturbed own;
    return *this << (std::isnan(value) ? "nan" : std::to_string(static_cast<double>(value)));
}

MachineStats& Host::collector() {
    const Undisturbed own;
    if (collector_ == nullptr) collector_ = std::make_unique<MachineStats>();
    return *collector_;
}

CPUUsage& Host::sampler() {
    const Undisturbed own;
    if (sampler_ == nullptr) sampler_ = std::make_unique<CPUUsage>(77);
    return *sampler_;
}

void Host::loadSettings() {
    if (KRELoadIniFile("bin/pressmark.ini") == 0) std::abort();
}

SweepResult sweep(const Operation& operation) { return Sweep(operation, true).everyCall(); }

SweepResult sweepWithoutLog(const Operation& operation) { return Sweep(operation, false).firstCalls(); }
