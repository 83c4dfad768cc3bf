// Settings.h - fills the library's process-wide tables for the length of a scope.
#pragma once

#include <stdexcept>
#include <string>
#include <string_view>

#include "TempDir.h"
#include "krenv.h"
#include "krenvState.h"
#include "krs.h"

/// Loads `text` as pressmark.ini. Its destructor restores the initial state: no file loaded, an empty run-time table.
class Settings {
public:
    explicit Settings(std::string_view text = {}) {
        if (KRELoadIniFile(dir_.writeFile("pressmark.ini", text).c_str()) == 0)
            throw std::runtime_error(KRSLoadError());
    }
    ~Settings() {
        KRSDestroyTable(IniTable);
        IniTable = 0;
        g_uTableSize = 0;
    }
    Settings(const Settings&) = delete;
    Settings& operator=(const Settings&) = delete;

private:
    TempDir dir_;
};
