// nobody.h - an observer of which the compiler knows that it is none, to see what the test for one costs.
#pragma once

class KRSResolveObserver;

struct Nobody {
    constexpr operator KRSResolveObserver*() const { return nullptr; }
    constexpr KRSResolveObserver* operator->() const { return nullptr; }
    void operator=(KRSResolveObserver*) {}
};
