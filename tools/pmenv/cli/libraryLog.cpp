#include "libraryLog.h"

#include <algorithm>

#include "Logging.h"
#include "output.h"

namespace {

using nLogging::Level;

bool concernsUser(const nLogging::Record& record) {
    return !record.text.empty() && (record.level == Level::Error || record.level == Level::Warning);
}

void show(const nLogging::Record& record) {
    if (!concernsUser(record)) return;
    if (record.level == Level::Error) {
        printError("error: " + record.text);
    } else {
        printWarning(record.text);
    }
}

}  // namespace

void showLibraryLog() {
    nLogging::gEnable(Level::Error, true);
    nLogging::gEnable(Level::Warning, true);
    nLogging::gSetSink(show);
}

LogPause::LogPause() {
    nLogging::gSetSink([this](const nLogging::Record& record) {
        sawErrors_ = sawErrors_ || record.level == Level::Error;
        if (!concernsUser(record) || std::find(texts_.begin(), texts_.end(), record.text) != texts_.end()) return;
        texts_.push_back(record.text);
    });
}

LogPause::~LogPause() { nLogging::gSetSink(show); }
