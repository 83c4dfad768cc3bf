// ScopedTable.h - a settings table that exists for the length of a scope.
#pragma once

#include <stdexcept>
#include <string_view>

#include "TempDir.h"
#include "krs.h"

class ScopedTable {
public:
    /// Creates an empty table.
    ScopedTable() = default;
    /// Creates a table from the text of a settings file.
    explicit ScopedTable(std::string_view text) {
        const TempDir dir;
        if (KRSLoad(dir.writeFile("table.ini", text).c_str(), handle_, nullptr) == 0) {
            KRSDestroyTable(handle_);
            throw std::runtime_error(KRSLoadError());
        }
    }
    ~ScopedTable() { KRSDestroyTable(handle_); }
    ScopedTable(const ScopedTable&) = delete;
    ScopedTable& operator=(const ScopedTable&) = delete;

    int handle() const { return handle_; }

private:
    const int handle_ = KRSCreateTable();
};
