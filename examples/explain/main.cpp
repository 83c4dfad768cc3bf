// A host program that shows its user where the value of a setting comes from: it observes the library's resolver while
// pressmark.ini is loaded and while the value is read.
#include <cstdio>
#include <string>
#include <utility>

#include "EnvSettings.h"
#include "krenv.h"
#include "krresolve.h"
#include "krs.h"

namespace {

// Prints each step, indented by its depth.
class Printer : public KRSLoadObserver {
public:
    explicit Printer(std::string setting) : setting_(std::move(setting)) {}

    // While the file is loaded, all of its entries are reported; only one key is printed.
    void begun(const char* key, const char* value) override {
        shows_ = setting_ == key;
        print("in the file: ", value);
    }
    void ended(const char* value) override {
        print(value != nullptr ? "stored: " : "left out", value);
        shows_ = false;
    }

    // When the value is read.
    void beginReading(const char* value) {
        shows_ = true;
        print("read: ", value);
    }

    // Called for references in braces at load, and for references in parentheses when the value is read.
    void found(const KRSReference& reference) override {
        ++depth_;
        const char* const source = reference.isVariable() ? "environment variable" : "setting";
        print((reference.written() + ", " + source + (reference.value != nullptr ? ": " : ", not defined")).c_str(),
              reference.value);
    }
    void resolved(const char* value) override {
        print("becomes: ", value);
        --depth_;
    }
    void failed(KRSResolveFailure why, const char* text) override {
        print(why == KRSResolveFailure::Cycle ? "leads back to itself: " : "meets a limit: ", text);
        depth_ = 0;
    }

private:
    void print(const char* what, const char* text) const {
        if (shows_) std::printf("%*s%s%s\n", 2 * depth_, "", what, text != nullptr ? text : "");
    }

    std::string setting_;
    bool shows_ = false;
    int depth_ = 0;
};

// Reads the setting as KREGetEnvValue does: the run-time table first, then pressmark.ini.
bool explain(const char* name, Printer& printer) {
    if (const char* const value = KREGetRuntimeValue(name)) return std::printf("set at run time: %s\n", value) > 0;
    const char* const stored = KRSGetValue(nEnvSettings::gPressmarkIniTable(), name);
    if (stored == nullptr) return false;
    AddDelSet inProgress;
    inProgress.observer = &printer;
    RWCString text(stored);
    printer.beginReading(stored);
    KRSRuntimeResolve(inProgress, text);

    KREnvContainerClass env;
    const char* const value = env.KREGetEnvValue(name);  // null when it is longer than 2047 characters
    return value != nullptr && std::printf("%s = %s\n", name, value) > 0;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: explain SETTINGS-FILE NAME\n");
        return 2;
    }
    Printer printer(argv[2]);
    if (KRELoadIniFile(argv[1], &printer) == 0) {
        std::fprintf(stderr, "explain: %s\n", KRSLoadError());
        return 1;
    }
    if (explain(argv[2], printer)) return 0;
    std::fprintf(stderr, "explain: %s has no value\n", argv[2]);
    return 1;
}
