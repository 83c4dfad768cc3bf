#include "krs.h"

#include <array>
#include <atomic>
#include <memory>
#include <mutex>
#include <new>
#include <stdexcept>
#include <string>

#include <pthread.h>

#include "Immortal.h"
#include "krsFile.h"
#include "krsTable.h"

namespace {

using krs::LineFailure;
using krs::LoadFailure;
using krs::Table;

// --- handles --------------------------------------------------------------------------------------------------------

// The tables by handle. Segments double in size and are never moved or freed, so that a look-up takes no lock. A vector
// behind a lock would be ten lines shorter, but adds 3 to 6 ns to the 30 of a look-up, and more where threads read at
// the same time.
class Registry {
public:
    // The new table's handle, 0 when all are used up.
    int add(std::unique_ptr<Table> table) {
        const std::lock_guard<std::mutex> lock(mutex_);
        if (last_ == kLastHandle) return 0;
        const Place place = placeOf(last_ + 1);
        if (segments_[place.segment].load(std::memory_order_relaxed) == nullptr) {
            segments_[place.segment].store(new std::atomic<Table*>[kFirstSegment << place.segment](),
                                           std::memory_order_release);
        }
        segments_[place.segment].load(std::memory_order_relaxed)[place.offset].store(table.release(),
                                                                                     std::memory_order_release);
        return ++last_;
    }

    Table* find(int handle) const {
        const std::atomic<Table*>* const slot = slotOf(handle);
        return slot != nullptr ? slot->load(std::memory_order_acquire) : nullptr;
    }

    // Takes the table out, so that it is found no more; null when there is none.
    Table* remove(int handle) {
        std::atomic<Table*>* const slot = slotOf(handle);
        return slot != nullptr ? slot->exchange(nullptr, std::memory_order_acq_rel) : nullptr;
    }

private:
    static constexpr unsigned kFirstSegment = 64;
    static constexpr int kLastHandle = 1 << 30;

    struct Place {
        unsigned segment;
        std::size_t offset;
    };

    // Segment s holds 64 << s handles: 1 to 64 are in segment 0, 65 to 192 in segment 1, ...
    static Place placeOf(int handle) {
        const unsigned number = static_cast<unsigned>(handle) + kFirstSegment - 1;
        const unsigned top = 31 - static_cast<unsigned>(__builtin_clz(number));
        return {top - 6, number - (1U << top)};
    }

    std::atomic<Table*>* slotOf(int handle) const {
        if (handle < 1 || handle > kLastHandle) return nullptr;
        const Place place = placeOf(handle);
        std::atomic<Table*>* const segment = segments_[place.segment].load(std::memory_order_acquire);
        return segment != nullptr ? &segment[place.offset] : nullptr;
    }

    std::mutex mutex_;  // guards last_ and the making of segments
    int last_ = 0;
    std::array<std::atomic<std::atomic<Table*>*>, 26> segments_{};
};

Registry& registry() {
    static Immortal<Registry> registry;
    return *registry;
}

// --- failures -------------------------------------------------------------------------------------------------------

void releaseText(void* text) { std::string().swap(*static_cast<std::string*>(text)); }

// The calling thread's last failure. A thread's end releases its text, the process's end does not: thread_local objects
// are destroyed before static ones, whose destructors may still load files.
std::string& lastLoadError() {
    static pthread_key_t atThreadEnd;
    static const bool releases = pthread_key_create(&atThreadEnd, &releaseText) == 0;
    thread_local Immortal<std::string> text;
    if (releases) pthread_setspecific(atThreadEnd, &*text);  // where either fails, a text stays allocated
    return *text;
}

// Runs what reads the file `path`. 1; after a failure, 0 and KRSLoadError's text, unless there is no memory for it.
template <class Reading>
int describeFailure(const char* path, Reading reading) {
    try {
        reading();
        return 1;
    } catch (const LoadFailure& failure) {
        lastLoadError() = path + failure.reason;
    } catch (const LineFailure& failure) {
        lastLoadError() = path + failure.text();
    } catch (const std::bad_alloc&) {
        lastLoadError() = path + std::string(": not enough memory");
    } catch (const std::length_error&) {
        lastLoadError() = path + std::string(": not enough address space");
    }
    return 0;
}

template <class Reading>
int noteFailure(const char* path, Reading reading) {
    if (path == nullptr || *path == '\0') {
        lastLoadError() = "no path given";
        return 0;
    }
    try {
        return describeFailure(path, reading);
    } catch (const std::bad_alloc&) {
        lastLoadError() = "out of memory";  // so short that it needs no block of its own
        return 0;
    }
}

void load(const char* path, int handle, KRSFilter filter) {
    Table* const table = registry().find(handle);
    if (table == nullptr) throw LoadFailure{": there is no settings table with handle " + std::to_string(handle)};
    const Table::LoadScope scope(table);
    table->load(krs::parse(krs::readFile(path)), filter);
}

}  // namespace

int KRSCreateTable() {
    try {
        return registry().add(std::make_unique<Table>());
    } catch (const std::bad_alloc&) {
        return 0;
    }
}

int KRSLoad(const char* path, int handle, KRSFilter filter) {
    return noteFailure(path, [=] { load(path, handle, filter); });
}

const char* KRSLoadError() { return lastLoadError().c_str(); }

const char* KRSGetValue(int handle, const char* key) {
    const Table* const table = registry().find(handle);
    return table != nullptr && key != nullptr ? table->find(key) : nullptr;
}

void KRSDestroyTable(int handle) {
    if (Table* const table = registry().remove(handle)) table->release();
}

std::size_t KRSEntryCount(int handle) {
    const Table* const table = registry().find(handle);
    return table != nullptr ? table->entries().size() : 0;
}

bool KRSGetEntry(int handle, std::size_t index, KRSEntry* entry) {
    const Table* const table = registry().find(handle);
    if (table == nullptr || entry == nullptr || index >= table->entries().size()) return false;
    *entry = table->entries()[index];
    return true;
}

int KRSReadLines(const char* path, const KRSLineVisitor& visitor) {
    return noteFailure(path, [&] { krs::visitLines(krs::readFile(path), visitor); });
}
