#pragma once

#include <memory>
#include <utility>

template <class T>
class OptionalValue {
public:
    bool has() const { return value_ != nullptr; }
    const T& get() const { return *value_; }
    void set(T value) { value_ = std::make_unique<T>(std::move(value)); }
    void reset() { value_.reset(); }

private:
    std::unique_ptr<T> value_;
};
