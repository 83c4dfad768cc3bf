// Lifetime.h - static objects that exist exactly as long as the host program's main scope.
//
// A library registers an object by defining a StaticObject at namespace scope. The host program opens the scope:
//
//     int main(int argc, char** argv) {
//         nLifetime::MainScope scope(argc, argv);   // first line: records the arguments, constructs the objects
//         ...
//     }                                             // destroys them in reverse order
//
// The objects of a library that is loaded while a scope is open are constructed at once. Without a scope nothing runs.
//
// Threads: one lock serialises registering, opening and closing. It is held while objects are constructed and
// destroyed. The thread that holds it may load further libraries from a constructor. (The system's loader has a lock of
// its own, so a library that registers objects must not be loaded on another thread at that moment.)
#pragma once

#include "KrfExport.h"

namespace nLifetime {

/// Opens the main scope for its own lifetime. A second object has no effect while the first exists.
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
    /// Creates the object.
    using Construct = void* (*)();
    /// Deletes the object that Construct created.
    using Destroy = void (*)(void*);

    /// Registers the object; creates it, too, if a main scope is open.
    Registration(Construct make, Destroy drop);
    /// Deletes the object if it exists, and cancels the registration.
    ~Registration();
    Registration(const Registration&) = delete;
    Registration& operator=(const Registration&) = delete;

    // For the scope only.
    bool isConstructed() const { return object_ != nullptr; }  ///< whether the object exists
    void construct();                                          ///< creates the object, which must not exist yet
    void destroy();                                            ///< deletes the object if it exists

private:
    Construct construct_;
    Destroy destroy_;
    void* object_ = nullptr;
};

/// Registers a T, which its default constructor creates while a main scope is open. If a scope is open already, an
/// exception of T's constructor passes through this constructor, and nothing is registered.
template <class T>
class StaticObject {
    static void* make() { return new T; }
    static void drop(void* object) { delete static_cast<T*>(object); }
    Registration registration_{&make, &drop};
};

}  // namespace nLifetime
