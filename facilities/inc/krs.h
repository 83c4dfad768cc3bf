// krs.h - settings tables: key/value files read into memory and looked up by key.
//
// File grammar:
//
//   bytes                     a UTF-8 byte-order mark at the start is skipped; lines end in LF or CRLF; a CR that is
//                             the last byte is cut too
//   blank line, ; or # first  skipped
//   [name]                    section: the keys below are stored as name.KEY, blanks around the name cut; [] goes back
//                             to plain keys
//   KEY = value               blanks and tabs around both are cut; the first = parts them; a value may be empty
//   KEY = "  value "          one pair of surrounding double quotes is removed, what is inside is kept as it is
//   ; or # inside a value     belongs to the value
//   the same key again        the later value wins
//
// A line without =, an empty key, an unclosed [, text behind a section's ] that is no comment, a NUL byte, anything
// that is not a readable regular file of at most 256 MiB: the load fails and the table is as it was before. A table
// holds at most 512 MiB of texts, those of all its loads together.
//
// Keys match exactly, byte by byte. A table keeps the file's text in one piece and its keys in one hash index (seeded
// per process, so that no file can provoke collisions); it loads in linear time.
//
// Threads: tables may be created and destroyed from any thread, and many threads may read one table. Loading or
// destroying a table excludes other calls on that same table; the caller sees to that. Nothing is logged here.
#pragma once

#include <cstddef>
#include <functional>
#include <string_view>

#include "KrfExport.h"

/// Decides what is stored for a key: gets the key as stored and the value as the file has it; returns the text to
/// store (copied before the filter is called again), or null to leave the entry out. It may look up in the table being
/// loaded, which then holds everything above the entry's line, load another file into it, or destroy it: the load then
/// goes on unseen and the table is released at its end. An entry left out leaves an earlier value of its key in force.
using KRSFilter = const char* (*)(const char* key, const char* value);

/// Creates an empty table. Its handle is at least 1 and never used again for another table; 0 when there is no memory.
KRF_EXPORT int KRSCreateTable();

/// Reads the file `path` into the table `handle`, on top of what the table holds, each value passed through `filter`
/// unless that is null. The whole file is parsed before the first entry is stored.
/// Non-zero on success. 0 when the file cannot be read or parsed or the handle names no table: the table is untouched
/// and KRSLoadError() tells why. What the filter throws passes through; the entries above it stay stored. Where memory
/// or those 512 MiB run out (the filter's std::bad_alloc and std::length_error count too), the load fails with 0, and
/// the entries that were filtered by then stay stored.
KRF_EXPORT int KRSLoad(const char* path, int handle, KRSFilter filter);

/// The calling thread's last failed KRSLoad: "PATH:LINE:COLUMN: reason", or "PATH: reason" where no line is to blame;
/// "" if none has failed. Lines and columns count from 1, columns in bytes and from behind a byte-order mark. Valid until
/// the thread's next failure or its end. The end of the process keeps it: destructors at exit may load files and ask.
KRF_EXPORT const char* KRSLoadError();

/// The value stored for `key`, or null when the table has no such key, `key` is null, or `handle` is 0, unknown or
/// destroyed. The text stays where it is as long as the table lives, also when a later value replaces it.
KRF_EXPORT const char* KRSGetValue(int handle, const char* key);

/// Releases the table and its texts, which must not be read any more. A handle that names no table is ignored.
KRF_EXPORT void KRSDestroyTable(int handle);

/// One stored entry, for tools that show where a value comes from. The texts live as long as the table.
struct KRSEntry {
    const char* key;    ///< the key as stored, its section in front
    const char* value;  ///< the value as stored, after the filter
    int line;           ///< its line in the file, from 1
    bool inForce;       ///< false when a later entry of the same key has replaced it
};

/// How many entries the table `handle` holds, replaced ones included; 0 for a handle that names no table.
KRF_EXPORT std::size_t KRSEntryCount(int handle);

/// Puts into `*entry` what stands at `index` in the order of loading, file order within one load. False, and `entry` untouched, past the
/// end, for a handle that names no table and for a null `entry`.
KRF_EXPORT bool KRSGetEntry(int handle, std::size_t index, KRSEntry* entry);

// --- for tools that show a file's user what it means ----------------------------------------------------------------

/// One line of a settings file, as KRSLoad reads it. The texts live as long as the visitor's call. Columns count bytes
/// from 1, as in KRSLoadError.
struct KRSLine {
    int number;               ///< from 1
    std::string_view text;    ///< the line as it stands, without its end
    const char* key;          ///< the key as it is stored, its section in front; null when the line holds no entry
    const char* value;        ///< the value as the file has it, before any filter; null likewise
    std::size_t keyColumn;    ///< where the key begins in the line
    std::size_t valueColumn;  ///< where the value begins, behind an opening quote
    const char* error;        ///< why KRSLoad refuses the file at this line; null when it does not
    std::size_t errorColumn;  ///< where, if so
};

/// Receives the lines that KRSReadLines reads.
using KRSLineVisitor = std::function<void(const KRSLine&)>;

/// Hands every line of the file `path` to `visitor`, also those behind a line that KRSLoad would refuse; nothing is
/// stored. Non-zero when the file was read to its end, whatever its lines hold. 0 when it cannot be read;
/// KRSLoadError() tells why. What the visitor throws passes through, except std::bad_alloc and std::length_error, which
/// are a failure. Any number of threads may read at once.
KRF_EXPORT int KRSReadLines(const char* path, const KRSLineVisitor& visitor);
