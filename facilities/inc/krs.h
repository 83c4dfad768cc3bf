// krs.h - settings tables: key/value files read into memory and looked up by key.
//
// File grammar:
//
//   bytes                     a UTF-8 byte-order mark at the start is skipped; lines end in LF or CRLF; a CR that is
//                             the last byte of the file is cut too
//   blank line, ; or # first  skipped
//   [name]                    section: the keys below are stored as name.KEY, blanks around the name cut; [] goes back
//                             to plain keys
//   KEY = value               blanks and tabs around both are cut; the first = separates them; a value may be empty
//   KEY = "  value "          one pair of surrounding double quotes is removed, the text inside is kept unchanged
//   ; or # inside a value     belongs to the value
//   the same key again        the later value wins
//
// A load fails and leaves the table unchanged if the file has a line without =, an empty key, an unclosed [, text after
// a section's ] that is not a comment, or a NUL byte, or if it is not a readable regular file of at most 256 MiB. A
// table holds at most 512 MiB of texts, those of all its loads together.
//
// Keys match exactly, byte by byte. A table keeps the file's text in one block and its keys in one hash index (seeded
// per process, so that no file can provoke collisions); it loads in linear time.
//
// Threads: any thread may create and destroy tables, and many threads may read one table. While a thread loads or
// destroys a table, the caller must keep other threads from using that table. Nothing is logged here.
#pragma once

#include <cstddef>
#include <functional>
#include <string_view>

#include "KrfExport.h"

/// Decides what is stored for a key. Receives the key as stored and the value as written in the file; returns the text
/// to store (copied before the filter is called again), or null to leave the entry out. It may look up keys in the
/// table that is being loaded, which then holds everything above the entry's line. It may load another file into that
/// table, or destroy it: the load then continues invisibly and the table is released at its end. An entry that is left
/// out leaves an earlier value of its key in force.
using KRSFilter = const char* (*)(const char* key, const char* value);

/// Creates an empty table. Returns its handle, which is at least 1 and never reused; 0 when there is no memory.
KRF_EXPORT int KRSCreateTable();

/// Reads the file `path` into the table `handle`, in addition to its earlier entries, and passes each value through
/// `filter` unless that is null. The whole file is parsed before the first entry is stored.
/// Non-zero on success. 0 when the file cannot be read or parsed or the handle names no table: the table is unchanged,
/// and KRSLoadError() gives the reason. What the filter throws passes through; the entries above it stay stored. When
/// memory or the 512 MiB run out (std::bad_alloc and std::length_error of the filter count too), the load fails with 0,
/// and the entries that were filtered by then stay stored.
KRF_EXPORT int KRSLoad(const char* path, int handle, KRSFilter filter);

/// Why the calling thread's last failed KRSLoad failed: "PATH:LINE:COLUMN: reason", or "PATH: reason" where no line is
/// to blame; "" if none has failed. Lines and columns count from 1, columns in bytes after a byte-order mark. Valid
/// until the thread's next failure or its end. It stays valid at the end of the process: destructors at exit may load
/// files and ask.
KRF_EXPORT const char* KRSLoadError();

/// The value stored for `key`, or null when the table has no such key, `key` is null, or `handle` is 0, unknown or
/// destroyed. The text stays at its address as long as the table exists, also when a later value replaces it.
KRF_EXPORT const char* KRSGetValue(int handle, const char* key);

/// Releases the table and its texts, which must not be read afterwards. A handle that names no table is ignored.
KRF_EXPORT void KRSDestroyTable(int handle);

/// One stored entry, for tools that show where a value comes from. The texts are valid as long as the table exists.
struct KRSEntry {
    const char* key;    ///< the key as stored, with its section in front
    const char* value;  ///< the value as stored, after the filter
    int line;           ///< its line in the file, from 1
    bool inForce;       ///< false when a later entry of the same key has replaced it
};

/// The number of entries in the table `handle`, including replaced ones; 0 for a handle that names no table.
KRF_EXPORT std::size_t KRSEntryCount(int handle);

/// Stores entry number `index` in `*entry`. Entries are ordered by load, and within one load as in the file. False,
/// with `*entry` unchanged, past the end, for a handle that names no table and for a null `entry`.
KRF_EXPORT bool KRSGetEntry(int handle, std::size_t index, KRSEntry* entry);

// --- for tools that explain a settings file to its user -------------------------------------------------------------

/// One line of a settings file, as KRSLoad reads it. The texts are valid during the visitor's call. Columns count bytes
/// from 1, as in KRSLoadError.
struct KRSLine {
    int number;               ///< from 1
    std::string_view text;    ///< the line as written, without its line end
    const char* key;          ///< the key as stored, with its section in front; null when the line has no entry
    const char* value;        ///< the value as written, before any filter; null when the line has no entry
    std::size_t keyColumn;    ///< where the key begins in the line
    std::size_t valueColumn;  ///< where the value begins, after an opening quote
    const char* error;        ///< why KRSLoad refuses the file at this line; null when it does not
    std::size_t errorColumn;  ///< the column of the error, if there is one
};

/// Receives the lines that KRSReadLines reads.
using KRSLineVisitor = std::function<void(const KRSLine&)>;

/// Passes every line of the file `path` to `visitor`, also those after a line that KRSLoad would refuse; stores
/// nothing. Non-zero when the file was read to its end, whatever its lines contain. 0 when it cannot be read;
/// KRSLoadError() gives the reason. What the visitor throws passes through, except std::bad_alloc and
/// std::length_error, which count as a failure. Any number of threads may read at once.
KRF_EXPORT int KRSReadLines(const char* path, const KRSLineVisitor& visitor);
