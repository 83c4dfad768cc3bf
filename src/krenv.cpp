#include "krenv.h"

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>

#include <dirent.h>

#include "krs.h"

// --- product identity -----------------------------------------------------------------------------------------------

int table = 0;

namespace {

// strtol's answer on 32 bits, where it stops at the limits of an int by itself.
int numberOf(const char* key) {
    const char* const value = KRVersionInfo(key);
    if (value == nullptr) return 0;
    const long number = std::strtol(value, nullptr, 10);
    return static_cast<int>(std::clamp<long>(number, INT_MIN, INT_MAX));
}

}  // namespace

const char* KRVersionInfo(const char* key) { return KRSGetValue(table, key); }

const char* KRVProductName() { return KRVersionInfo("PRODUCT_NAME"); }
const char* KRVProductNameDisplay() { return KRVersionInfo("PRODUCT_NAME_DISPLAY"); }

const char* KRVProductsList() {
    const char* const list = KRVersionInfo("PRODUCTS_LIST");
    return list != nullptr ? list : "";
}

const char* KRVProductFileName() { return KRVersionInfo("PRODUCT_FILE_NAME"); }
const char* KRVProductVersion() { return KRVersionInfo("PRODUCT_VERSION"); }
const char* KRVProductVersionName() { return KRVersionInfo("PRODUCT_VERSION_NAME"); }
const char* KRVProductMessage() { return KRVersionInfo("PRODUCT_MESSAGE"); }
const char* KRVProductErrorMessage() { return KRVersionInfo("PRODUCT_ERROR_MESSAGE"); }
const char* KRVProductQuery() { return KRVersionInfo("PRODUCT_QUERY"); }
const char* KRVEditorTitle() { return KRVersionInfo("EDITOR_TITLE"); }
const char* KRVProductIniFile() { return KRVersionInfo("PRODUCT_INI_FILE"); }
const char* KRVProductIniBackup() { return KRVersionInfo("PRODUCT_INI_BACKUP"); }
const char* KRVProductHelpFile() { return KRVersionInfo("PRODUCT_HELP_FILE"); }
const char* KRVProductFrmFile() { return KRVersionInfo("PRODUCT_FRM_FILE"); }

int KRVProductCoverX() { return numberOf("BMP_X_SIZE"); }
int KRVProductCoverY() { return numberOf("BMP_Y_SIZE"); }
int KRVProductIconNumber() { return numberOf("PRODUCT_ICON_NUMBER"); }
int KRVProductType() { return numberOf("PRODUCT_TYPE"); }

// --- directory walk -------------------------------------------------------------------------------------------------

namespace {

bool isDotEntry(const char* name) { return std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0; }

bool isDirectory(const char* path) {
    DIR* const opened = opendir(path);
    if (opened != nullptr) closedir(opened);
    return opened != nullptr;
}

// One walk. All levels compose their paths in the same buffer: a buffer for each would need more stack than a thread
// has for a tree as deep as a path can be long.
//
// The directory streams are held by plain pointers on purpose: those that callers know as left open stay open.
class Walk {
public:
    Walk(const char* skipName, bool recurse, CFindFileFunctor& functor)
        : skipName_(skipName), recurse_(recurse), functor_(functor) {}

    // False when `directory` does not fit; then the system could not open it either.
    bool start(const char* directory) {
        length_ = std::strlen(directory);
        if (length_ >= sizeof path_) return false;
        std::memcpy(path_, directory, length_ + 1);
        return true;
    }

    // Walks the directory in the buffer. False when the functor ended the walk.
    bool walk() { return reportFiles() && (!recurse_ || enterDirectories()); }

private:
    bool reportFiles() {
        DIR* const listing = opendir(path_);
        if (listing == nullptr) return true;
        while (const dirent* const entry = readdir(listing)) {
            if (std::strcmp(entry->d_name, skipName_) == 0 || isDotEntry(entry->d_name)) continue;
            const std::size_t parentLength = length_;
            if (!append(entry->d_name)) continue;
            if (!isDirectory(path_) && !functor_(path_)) return false;  // the listing stays open
            cutTo(parentLength);
        }
        closedir(listing);
        return true;
    }

    bool enterDirectories() {
        DIR* const listing = opendir(path_);
        if (listing == nullptr) return true;
        bool goOn = true;
        while (const dirent* const entry = goOn ? readdir(listing) : nullptr) {
            if (isDotEntry(entry->d_name)) continue;
            const std::size_t parentLength = length_;
            if (!append(entry->d_name)) continue;
            if (opendir(path_) != nullptr) goOn = walk();  // the stream that proves it a directory stays open
            cutTo(parentLength);
        }
        closedir(listing);
        return goOn;
    }

    // Adds "/name" to the buffer; false, with nothing changed, when that does not fit.
    bool append(const char* name) {
        const std::size_t nameLength = std::strlen(name);
        if (length_ + 1 + nameLength >= sizeof path_) return false;
        path_[length_] = '/';
        std::memcpy(path_ + length_ + 1, name, nameLength + 1);
        length_ += 1 + nameLength;
        return true;
    }

    void cutTo(std::size_t length) {
        path_[length] = '\0';
        length_ = length;
    }

    const char* skipName_;
    bool recurse_;
    CFindFileFunctor& functor_;
    char path_[4096];
    std::size_t length_ = 0;
};

}  // namespace

bool FindFile(const char* directory, const char* skipName, bool recurse, CFindFileFunctor* functor) {
    if (directory == nullptr || functor == nullptr) return true;
    Walk walk(skipName != nullptr ? skipName : "", recurse, *functor);
    return !walk.start(directory) || walk.walk();
}
