// krenv.h - the environment support library: variables, paths and files, host facts, identity, directory walk.
//
// Settings come from two tables that the whole process shares: the run-time table, which the host program fills with
// KRESetEnvValue, and the init-file table, which KREInit loads from pressmark.ini. Values may refer to other settings
// and to the process environment:
//
//     ${NAME} #{NAME}   expanded once, when pressmark.ini is loaded
//     $(NAME) #(NAME)   expanded each time the value is read
//
// $ refers to an environment variable, # to a setting. A name that does not exist expands to nothing.
//
// Results: a text is returned as a pointer into a buffer of the container object that was asked (or into a static
// buffer, where the function says so). It is valid until that buffer is written again; the caller never frees it. A
// null pointer, false, 0 or -1 means a failure, with a log record (category "PMEnvironment") where the function says
// so. Functions share the object's buffers:
//
//     buffer              written by
//     found file          searchInPath, KRPSearchPath, KRPFindfile, KRPFindfileNoKREnv; KRPGetFullName of a bare name
//     directory, name,    every function that splits a path: KRPSplitPath, KRPGetPath..., KRPConcatDirAndName,
//       extension           KRPReplacePath..., KRPAdjustPathLen where it shortens, and all that write the found file or
//                           the made path
//     made path           KRPMakePath, KRPConcatDirAndName, KRPReplacePath..., KRPPathFileExist, KRPResolveFilePath...,
//                           KRPGetFullName, and all that write the found file
//     resolved value      KREGetEnv, KREGetEnvValue, KREEnvDefined, KRERuntimeResolve, every path variable "#X", and
//                           nEnvSettings::gFileInitTable
//     resolved variable   KRPResolvePathVar..., and every function that takes a path variable
//     home, documents     KRPGetUserDir and the path variable "HOME", KRPGetMyDocuments and "MYDOCUMENTS"
//     working directory   KRPGetCwd
//
// Any result may be passed back to the object that it comes from: a function reads its arguments before it writes over
// them.
//
// Limits: a path result holds at most 4095 characters, an expanded value 2047. Nothing is written past a buffer of the
// library. KRPAbsPath and KRPGetFullName write up to 4096 bytes into the caller's buffer, whatever size the caller
// passes.
//
// Threads: the library locks only its file searches (KRPFindfile, KRPFindfileNoKREnv). Give each thread its own
// container object, and change settings (KRESetEnvValue, KREInit) only while no other thread reads them. The process
// environment is read with getenv, so changing it on another thread at the same time is a data race, as in any program.
#pragma once

#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <string>
#include <string_view>

#include "krexport.h"

class KRSLoadObserver;

/// The container that answers questions about settings and paths. It owns only result buffers, so a program may create
/// as many as it needs. One takes about 39 KB: mind the stack size of small threads.
class KRENV_EXPORT KREnvContainerClass {
public:
    /// Creates an object with empty buffers; reads nothing.
    KREnvContainerClass();
    /// Releases the buffers and with them the texts that this object has returned.
    ~KREnvContainerClass();
    KREnvContainerClass(const KREnvContainerClass&) = delete;
    KREnvContainerClass& operator=(const KREnvContainerClass&) = delete;

    // --- settings ---------------------------------------------------------------------------------------------------

    /// Sets `name` in the run-time table, replacing its earlier value. Returns the stored value, which stays at its
    /// address until the end of the process. Null, with the table unchanged, when an argument is null, name or value is
    /// longer than 255 characters, or `name` would be the 1025th. Logs nothing.
    const char* KRESetEnvValue(const char* name, const char* value);

    /// The full lookup: the run-time value of `name` exactly as it was set, references included, in the table, where it
    /// stays until the end of the process; otherwise the result of KREGetEnv. Null when neither has a value. Logs
    /// nothing.
    const char* KREGetEnvValue(const char* name);

    /// The value of `name` in pressmark.ini, its $() and #() references expanded, in this object's 2048-byte buffer.
    /// The run-time table is not consulted. Null when there is no such setting or its expansion failed (see
    /// KRERuntimeResolve). Logs nothing.
    const char* KREGetEnv(const char* name);

    /// True when pressmark.ini defines `name` (the run-time table does not count) and its expanded value contains
    /// `text`; `ignoreCase` ignores the case of letters. With an empty text only the definition counts.
    bool KREEnvDefined(const char* name, const char* text, bool ignoreCase);

    /// Expands the $() and #() references in `text` into this object's 2048-byte buffer. Null, with the buffer
    /// unchanged, when `text` is null, a reference leads back to itself, or a limit is passed: a result over 2047
    /// characters, more than 1 MiB of text, 512 levels, 65,536 substitutions or 256 Mi characters of searching. Logs
    /// nothing.
    const char* KRERuntimeResolve(const char* text);

    // --- path texts -------------------------------------------------------------------------------------------------
    // Splitting accepts / and \ as separators, composing writes /. Null arguments are refused after an Error record
    // that carries only the position. A result over 4095 characters is refused with null, such a record, and the buffer
    // unchanged; a longer path to split is cut.

    /// Splits `path` and stores the address of each part whose pointer is not null. The path of an existing directory
    /// (stat; a relative path counts from the working directory) is split into a directory alone, without a name. Of a
    /// path of more than 4095 characters the first 4095 are split, after an Error record that carries only the position
    /// when it has more than 4096. A null `path` gets such a record too and has three empty parts.
    ///     "/usr/lib/x.tar.gz" -> "/usr/lib" "x.tar" "gz"     "a/b\c/d"  -> "a/b\c" "d" ""
    ///     "/x"                -> "" "x" ""                   ".profile" -> "" "" "profile"
    void KRPSplitPath(const char* path, char** dir, char** name, char** ext);

    /// The directory of `path`, without its last separator; null for a null `path`. Each of these three functions
    /// splits the path anew and overwrites all three parts.
    const char* KRPGetPathDirectory(const char* path);
    /// The last component of `path` without its extension.
    const char* KRPGetPathName(const char* path);
    /// The text after the last dot of the last component of `path`.
    const char* KRPGetPathExt(const char* path);

    /// Composes dir/name.ext. With an empty `dir` the name is appended to the result of the last composition on this
    /// object, so that programs can compose in steps; an empty `ext` adds no dot.
    const char* KRPMakePath(const char* dir, const char* name, const char* ext);
    /// `dir` joined with the name and extension of `path`:   ("dir", "sub/x.txt") -> "dir/x.txt"
    const char* KRPConcatDirAndName(const char* dir, const char* path);
    /// `path` with another extension.
    const char* KRPReplacePathExt(const char* path, const char* ext);
    /// `path` with another name, its extension kept.
    const char* KRPReplacePathName(const char* path, const char* name);

    /// Shortens `path` for display by cutting its middle: a path of `maxLen` characters or more becomes exactly
    /// `maxLen` characters in `out`, which must hold one more:
    ///     ("/home/user/projects/reports/weekly.md", 30) -> "/home/user/projec...\weekly.md"
    /// The dot is written even without an extension. A shorter path is copied whole, and so is any path for a negative
    /// `maxLen` (a `maxLen` that is not positive gets an Error record). Null, with `out` unchanged, when name and
    /// extension leave fewer than 5 characters.
    char* KRPAdjustPathLen(const char* path, char* out, int maxLen);

    /// The working directory (getcwd), or null when it cannot be read.
    const char* KRPGetCwd();

    // --- path variables and file search -----------------------------------------------------------------------------
    // A path variable is "PATH", "HOME" or "MYDOCUMENTS" (those environment variables), "$X" (the environment variable
    // X), "#X" (the setting X; not in the NoKREnv functions, which work before settings exist), or else the text
    // itself. It stands for a list of directories separated by ":"; empty entries are ignored.

    /// The list that the path variable stands for, or null when it is unset or empty. Owned by this object until it
    /// resolves the next variable. A null `var` gets an Error record without text.
    const char* KRPResolvePathVarNoKREnv(const char* var);
    /// The same with "#X", which stands for the result of KREGetEnv.
    const char* KRPResolvePathVar(const char* var);

    /// The first existing `name` in the directories of `list`; null when there is none. Only the last component of
    /// `name` is searched for. A `name` that is also the path of an existing directory, seen from the working
    /// directory, has no last component: the result is then the first directory of the list that exists, followed by
    /// "/". This holds for all searches and for KRPResolveFilePath.
    const char* searchInPath(const char* name, const char* list);
    /// searchInPath in the environment variable PATH.
    const char* KRPSearchPath(const char* name);
    /// The path of `name` (its last component) in `dir` if anything of that name exists; null otherwise.
    const char* KRPPathFileExist(const char* dir, const char* name);

    /// The first existing `name` in the given path variables, tried in order. The list ends with a null pointer (of a
    /// pointer's size: write `static_cast<const char*>(nullptr)`) or an empty text; an empty first variable ends it
    /// too. Holds the library's search lock.
    const char* KRPFindfile(const char* name, const char* var, ...);
    /// The same without "#X".
    const char* KRPFindfileNoKREnv(const char* name, const char* var, ...);

    /// Where to place `name`: its last component in the first directory of the variable's list that exists, whether or
    /// not the file does. Null when the variable is unset or none of its directories exists.
    const char* KRPResolveFilePath(const char* name, const char* var);
    /// The same without "#X".
    const char* KRPResolveFilePathNoKREnv(const char* name, const char* var);

    /// The absolute form of `path` in `out`, which must hold 4096 bytes whatever `size` says. With a directory part,
    /// that directory is made absolute and the file need not exist. A bare name, and "/name" too, because its directory
    /// part is empty, is searched in the working directory and then in the setting INCLUDE_PATH; this fails when the
    /// name found is longer than `size`, and `out` holds no path when the file found has no absolute path (below a
    /// working directory deeper than any path, for example). Null on failure.
    char* KRPGetFullName(const char* path, char* out, int size);

    // --- file tests and the user's directories ----------------------------------------------------------------------

    /// True when stat can examine `path`, whatever kind of file it is.
    bool KRPFileExist(const char* path);
    /// The same; the flag has no effect.
    bool KRPFileExist(const char* path, bool flag);

    /// The environment variable HOME, or null, with the buffer unchanged, when it is unset or longer than 4095
    /// characters.
    const char* KRPGetUserDir();
    /// The environment variable MYDOCUMENTS, in the same way.
    const char* KRPGetMyDocuments();

    /// A file name that is not in use in the directory of the path variable `var`, or in /tmp if there is no such
    /// directory (tempnam, prefix "tmp"). If the environment variable TMPDIR names a directory, the name is in that
    /// one, whatever `var` says. The name is in a static buffer that all objects and threads share; null on failure.
    /// The file is not created, so another process may take the name first.
    const char* KRPGetTempName(const char* var);

private:
    using ResolveVariable = const char* (KREnvContainerClass::*)(const char* var);

    KRENV_HIDDEN void storeParts(std::string_view dir, std::string_view name, std::string_view ext);
    KRENV_HIDDEN const char* makePath(std::string_view dir, std::string_view name, std::string_view ext);
    KRENV_HIDDEN const char* valueOfPathVariable(const char* var);
    KRENV_HIDDEN const char* findInVariables(const char* name, const char* var, ResolveVariable resolve,
                                             std::va_list more);
    KRENV_HIDDEN const char* placeInDirectory(const char* name, const char* list);
    KRENV_HIDDEN char* fullNameInDirectory(const char* dir, char* out);
    KRENV_HIDDEN char* fullNameOfBareName(const char* name, char* out, int size);
    KRENV_HIDDEN const char* storeResolved(const char* text, std::size_t length);

    // The layout is known to programs built against earlier releases: order and sizes stay.
    char* m_pszResolvedVar;        // owned; what KRPResolvePathVarNoKREnv resolved last
    char m_szFound[4096];          // searchInPath
    char m_szUserDir[4096];        // KRPGetUserDir
    char m_szCwd[4096];            // KRPGetCwd
    char m_szDir[4096];            // KRPSplitPath
    char m_szName[4096];           // KRPSplitPath
    char m_szExt[4096];            // KRPSplitPath
    char m_szMadePath[4096];       // KRPMakePath
    char m_szResolvedValue[2048];  // KRERuntimeResolve
    char m_szMyDocuments[4096];    // KRPGetMyDocuments
    char m_szReserved[4096];       // no function writes it; it keeps the object's size
};

// --- initialisation -------------------------------------------------------------------------------------------------

/// Searches for pressmark.ini in `directory`, then in the directories of the environment variable KR_BIN, then in HOME.
/// Loads it as the settings, with ${} and #{} references expanded, registers `directory` as the executable's directory,
/// and writes the start-up report to the log (level Execution). The library calls this function itself with the
/// program's directory when the host program opens its main scope (Lifetime.h); the program may call it again. 1 on
/// success. 0 after an Error record when there is no such file (the settings stay unchanged) or when it cannot be
/// parsed (then no setting may be read until a later KREInit has succeeded; KRSLoadError() in krs.h gives line and
/// reason). `directory` is a path variable like the others: "HOME" or "$X" stands for another directory, and ":"
/// separates the directories of a list. An empty one finds nothing. A null one is a caller's bug: std::logic_error. A
/// setting whose references form a cycle is left out after an Error record; the others are loaded.
KRENV_EXPORT int KREInit(const char* directory);

/// Loads the settings file `path` in place of pressmark.ini, with the same outcome and Error record as KREInit for a
/// file that was found. Searches nothing and writes no report. For tools whose user names the file. `observer`
/// (krresolve.h), if not null, receives each entry and the references in it; it is not kept.
KRENV_EXPORT int KRELoadIniFile(const char* path, KRSLoadObserver* observer = nullptr);

/// The value that KRESetEnvValue has set for `name`, or null when there is none. Distinguishes a run-time value from a
/// setting.
KRENV_EXPORT const char* KREGetRuntimeValue(const char* name);

// --- host facts -----------------------------------------------------------------------------------------------------
// Call these on one thread, at start-up. Texts are in static storage of the function, and its next call may overwrite
// them. Nothing is logged.

/// Everything that the shell command `command` writes to its standard output; its exit code is ignored. Throws
/// std::runtime_error "popen() failed!" when it cannot be started.
KRENV_EXPORT std::string exec(const char* command);

/// The resolver's official name for this host (gethostname, gethostbyname), or the plain host name; at most 149
/// characters. Each call asks the system again.
KRENV_EXPORT char* KRPGetMachineName();

/// The model name of the first processor in /proc/cpuinfo. Call it once: each further call removes another leading
/// character. Throws std::out_of_range when there is no model name, and std::runtime_error like exec.
KRENV_EXPORT const char* KRPGetCPUInfo();

/// True when the system's word size is 64 bits (`getconf LONG_BIT`, run at every call). Throws std::runtime_error like
/// exec.
KRENV_EXPORT bool KRPIs64BitEnv();

/// The addresses of all interfaces except "lo" (getifaddrs), each as "IP4: 10.1.2.3 " or "IP6: fe80::1 ". Each call
/// appends them once more to the text of the earlier calls.
KRENV_EXPORT const char* KRPGetIPAddress();

/// "Linux (SYSTEM RELEASE)" from uname:   "Linux (Linux 5.15.0)"
KRENV_EXPORT char* KRPGetOSInfo();

// Fixed answers, kept for programs that call these functions on every platform.
KRENV_EXPORT bool IsNT();                 ///< false: not the NT family
KRENV_EXPORT int GetProcessHandle();      ///< 0: no process handle
KRENV_EXPORT int KRPGetWorkingSetSize();  ///< 0: no working set

// --- paths and files ------------------------------------------------------------------------------------------------

/// Writes the working directory to the `size` bytes at `buf` (getcwd). Returns `buf`, or null when the directory does
/// not fit or cannot be read.
KRENV_EXPORT char* KRPGetCurrentDir(char* buf, int size);
/// Writes the absolute path of an existing `path`, with links followed (realpath), to `resolved`, which must hold 4096
/// bytes whatever `size` says. False when there is no such file.
KRENV_EXPORT bool KRPAbsPath(const char* path, char* resolved, int size);

/// True when the path's mode (stat) has the directory bit. Block devices and sockets share that bit and count too.
/// False for an empty path or one that stat cannot examine.
KRENV_EXPORT bool KRPIsClosedFileADirectory(const char* path);
/// The same test on an open stream (fstat).
KRENV_EXPORT bool KRPIsOpenFileADirectory(std::FILE* stream);
/// The length in bytes of the open file `fd`; -1 when it cannot seek or is longer than 2^31 - 1 bytes. Keeps its
/// offset.
KRENV_EXPORT int filelength(int fd);

/// Creates the directory `path` with mode 0777 less the process's umask; its parents must exist. True when something of
/// that name exists afterwards, even a file that was there before. False after two Error records, with the system's
/// reason and the path; also for a null path.
KRENV_EXPORT bool KRPCreateDirectory(const char* path);

/// Removes `path` and everything below it with the shell command "/bin/rm -fr PATH". A path without "/tmp" in it gets
/// an Error record that carries only the position, and is removed like any other. Trace records contain the command
/// and its status; the caller gets no result. An empty path removes nothing, and without memory for the command nothing
/// is removed either.
KRENV_EXPORT void KRPRemoveAllDirectories(const char* path);

/// Copies the file `from` with the shell command "/bin/cp "FROM" "TO" > /dev/null"; `to` may be a directory. True when
/// the command succeeded. False, without running it, when the names are equal except for upper and lower case, one of
/// them is null, `from` does not exist or there is no memory for the command. Also false, even if the copy was made, in
/// a program that ignores SIGCHLD: system() cannot find out the command's status there.
///
/// For both commands a name means exactly the file of that name. A name that the shell or the command would take for
/// something else is quoted, or gets "./" in front:
///     "/tmp/run7"  -> /bin/rm -fr /tmp/run7            "/tmp/a $b"  -> /bin/rm -fr '/tmp/a $b'
///     "-x" to "/y" -> /bin/cp "./-x" "/y" > /dev/null  "/a$b" to "/c d" -> /bin/cp '/a$b' "/c d" > /dev/null
/// No command is ever cut; a command that is too long for the system fails.
KRENV_EXPORT bool KRPCopyFile(const char* from, const char* to);

/// "/tmp", or "" when that cannot be opened as a directory. A static text.
KRENV_EXPORT const char* KRPGetTempDirectory();

/// Changes the process's working directory; true on success, false for a null path. Logs nothing.
KRENV_EXPORT bool KRPChdir(const char* path);

/// Writes the Error record "WHAT. Error: NUMBER:DESCRIPTION" about the thread's errno. Call it before anything else can
/// change errno.    'Failed to create dir. Error: 13:Permission denied'
KRENV_EXPORT void LogLastError(const char* what);

// --- product identity -----------------------------------------------------------------------------------------------
// The product's names, versions and numbers are the values of a settings table that the host program loads. The texts
// are returned as stored and owned by the table; null when the table lacks the key. Nothing is logged. Any thread may
// call these functions once `table` is set.

/// The settings table (krs.h) of the product's identity. The host program sets it; the library reads it at each call.
/// 0: none.
extern KRENV_EXPORT int table;

/// The value of `key` in `table`.
KRENV_EXPORT const char* KRVersionInfo(const char* key);

KRENV_EXPORT const char* KRVProductName();          ///< PRODUCT_NAME
KRENV_EXPORT const char* KRVProductNameDisplay();   ///< PRODUCT_NAME_DISPLAY
KRENV_EXPORT const char* KRVProductsList();         ///< PRODUCTS_LIST; "" when the table lacks it
KRENV_EXPORT const char* KRVProductFileName();      ///< PRODUCT_FILE_NAME
KRENV_EXPORT const char* KRVProductVersion();       ///< PRODUCT_VERSION
KRENV_EXPORT const char* KRVProductVersionName();   ///< PRODUCT_VERSION_NAME
KRENV_EXPORT const char* KRVProductMessage();       ///< PRODUCT_MESSAGE
KRENV_EXPORT const char* KRVProductErrorMessage();  ///< PRODUCT_ERROR_MESSAGE
KRENV_EXPORT const char* KRVProductQuery();         ///< PRODUCT_QUERY
KRENV_EXPORT const char* KRVEditorTitle();          ///< EDITOR_TITLE
KRENV_EXPORT const char* KRVProductIniFile();       ///< PRODUCT_INI_FILE
KRENV_EXPORT const char* KRVProductIniBackup();     ///< PRODUCT_INI_BACKUP
KRENV_EXPORT const char* KRVProductHelpFile();      ///< PRODUCT_HELP_FILE
KRENV_EXPORT const char* KRVProductFrmFile();       ///< PRODUCT_FRM_FILE

// The number at the start of the value, with blanks and a sign allowed in front ("640px" -> 640, "abc" -> 0). A number
// that does not fit becomes INT_MAX or INT_MIN; 0 when the table lacks the key.
KRENV_EXPORT int KRVProductCoverX();      ///< BMP_X_SIZE, the splash image's width
KRENV_EXPORT int KRVProductCoverY();      ///< BMP_Y_SIZE, its height
KRENV_EXPORT int KRVProductIconNumber();  ///< PRODUCT_ICON_NUMBER
KRENV_EXPORT int KRVProductType();        ///< PRODUCT_TYPE

// --- directory walk -------------------------------------------------------------------------------------------------

/// Receives the files that FindFile finds. The call operator is the first and only slot of the virtual function table,
/// also in host programs built against earlier releases, so there is no virtual destructor.
class KRENV_EXPORT CFindFileFunctor {
public:
    /// Receives the path of one file, valid during the call. True continues the walk, false ends all of it.
    virtual bool operator()(const char* path) = 0;

protected:
    ~CFindFileFunctor() = default;
};

/// Passes `directory`/NAME to `functor` for every entry that cannot be opened as a directory, for whatever reason:
/// first the files of the directory itself, in the order in which the system lists them, then with `recurse` those of
/// each subdirectory and everything below it. Files named exactly `skipName` are skipped; directories of that name are
/// entered. False when the functor ended the walk, else true, also for a directory that cannot be opened. Nothing is
/// logged. What the functor throws passes through. Entries whose path is longer than 4095 characters are skipped.
///
/// Symbolic links to directories are followed, and loops are not detected: the system ends them at 40 links, but two
/// links to the same place multiply. Every walk ends, because it leaves a descriptor open for each directory that it
/// enters, in addition to those that are open when the functor ends it. Once the process has no descriptors left,
/// directories cannot be opened and count as files.
KRENV_EXPORT bool FindFile(const char* directory, const char* skipName, bool recurse, CFindFileFunctor* functor);
