// Lifetime.h - static objects that live exactly as long as the host program's main scope.
//
// A library registers an object by defining a StaticObject at namespace scope. The host opens the scope:
//
//     int main(int argc, char** argv) {
//         nLifetime::MainScope scope(argc, argv);   // first line: records the arguments, constructs the objects
//         ...
//     }                                             // destroys them in reverse order
//
// A library that is loaded while a scope is open has its objects constructed at once. Without a scope nothing runs.
//
// Threads: registering, opening and closing are serialised by one lock, which is held while objects are constructed
// and destroyed; the thread that holds it may load further libraries from a constructor. (The system's loader has a
// lock of its own: a library that registers objects must not be loaded on another thread at that moment.)
#pragma once

#include "KrfExport.h"

namespace nLifetime {

/// Opens the main scope for as long as it lives. A second one while the first is open does nothing.
class KRF_EXPORT MainScope {
public:
    /// Records the arguments (see CommandLineArguments.h) and constructs the registered objects in the order of
    /// registration. What a constructor throws passes through, after the objects before it have been destroyed.
    MainScope(int argc, const char* const* argv);
    /// Destroys the objects in reverse order.
    ~MainScope();
    MainScope(const MainScope&) = delete;
    MainScope& operator=(const MainScope&) = delete;

private:
    bool opened_;
};

/// The type-free part of a StaticObject.
class KRF_EXPORT Registration {
public:
    /// Makes the object.
    using Construct = void* (*)();
    /// Deletes what Construct made.
    using Destroy = void (*)(void*);

    /// Registers; where a main scope is open, also makes the object.
    Registration(Construct make, Destroy drop);
    /// Deletes the object if it is there, and takes the registration back.
    ~Registration();
    Registration(const Registration&) = delete;
    Registration& operator=(const Registration&) = delete;

    // For the scope only.
    bool isConstructed() const { return object_ != nullptr; }  ///< whether the object is there
    void construct();                                          ///< makes the object, which is not there yet
    void destroy();                                            ///< removes the object if it is there

private:
    Construct construct_;
    Destroy destroy_;
    void* object_ = nullptr;
};

/// Registers a T, built by its default constructor while a main scope is open. Where one is open already, what the
/// constructor throws leaves this one's constructor, and nothing is registered.
template <class T>
class StaticObject {
    static void* make() { return new T; }
    static void drop(void* object) { delete static_cast<T*>(object); }
    Registration registration_{&make, &drop};
};

}  // namespace nLifetime
