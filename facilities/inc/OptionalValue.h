// OptionalValue.h - a holder that is empty or has one value, and reports when it is filled twice.
#pragma once

#include <optional>
#include <utility>

#include "Logging.h"

/// Empty or one T. Belongs to one thread at a time.
template <class T>
class OptionalValue {
public:
    /// True when a value is held.
    bool has() const { return value_.has_value(); }

    /// The held value; call it only while has() is true. The reference is valid until the value is replaced or reset.
    const T& get() const { return *value_; }

    /// Stores `value`. Filling a full holder is a mistake of the caller: it gets an Error record, and the new value
    /// replaces the old one.
    void set(T value) {
        if (has()) {
            PM_LOG_RECORD(nLogging::Level::Error, "PMEnvironment", "OptionalValue", __LINE__)
                << "an optional value that is already set is set again";
        }
        value_ = std::move(value);
    }

    /// Empties the holder.
    void reset() { value_.reset(); }

private:
    std::optional<T> value_;
};
