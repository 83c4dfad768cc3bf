// OpenDescriptors.h - finds the descriptors that a piece of code leaves open.
#pragma once

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <map>
#include <string>
#include <system_error>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

/// Remembers the descriptors that are open at its construction, and closes those opened since at the end of its scope.
class OpenDescriptors {
public:
    OpenDescriptors() : before_(all()) {}
    ~OpenDescriptors() {
        for (const auto& [descriptor, target] : added()) close(descriptor);
    }
    OpenDescriptors(const OpenDescriptors&) = delete;
    OpenDescriptors& operator=(const OpenDescriptors&) = delete;

    /// How many are open now.
    static std::size_t count() { return all().size(); }

    /// The targets of the descriptors opened since, sorted; a target appears once for each descriptor.
    std::vector<std::string> addedTargets() const {
        std::vector<std::string> targets;
        for (const auto& [descriptor, target] : added()) targets.push_back(target);
        std::sort(targets.begin(), targets.end());
        return targets;
    }

private:
    using Descriptors = std::map<int, std::string>;

    static Descriptors all() {
        Descriptors found;
        for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
            std::error_code gone;
            found[std::stoi(entry.path().filename())] = std::filesystem::read_symlink(entry.path(), gone);
        }
        // One of them was used to list the others and is closed by now.
        for (auto i = found.begin(); i != found.end();) i = isOpen(i->first) ? std::next(i) : found.erase(i);
        return found;
    }

    static bool isOpen(int descriptor) { return fcntl(descriptor, F_GETFD) != -1; }

    Descriptors added() const {
        Descriptors now = all();
        for (const auto& [descriptor, target] : before_) now.erase(descriptor);
        return now;
    }

    Descriptors before_;
};
