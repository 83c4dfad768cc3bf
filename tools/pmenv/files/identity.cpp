// identity: the product's names, versions and numbers.
#include <iostream>
#include <string>
#include <utility>

#include <unistd.h>

#include "commandLine.h"
#include "failure.h"
#include "krenv.h"
#include "krs.h"
#include "output.h"
#include "secrets.h"
#include "table.h"

namespace {

// One of the two functions answers for the key.
struct Accessor {
    const char* key;
    const char* (*text)();
    int (*number)();
};

constexpr Accessor kAccessors[] = {
    {"PRODUCT_NAME", KRVProductName, nullptr},
    {"PRODUCT_NAME_DISPLAY", KRVProductNameDisplay, nullptr},
    {"PRODUCTS_LIST", KRVProductsList, nullptr},
    {"PRODUCT_FILE_NAME", KRVProductFileName, nullptr},
    {"PRODUCT_VERSION", KRVProductVersion, nullptr},
    {"PRODUCT_VERSION_NAME", KRVProductVersionName, nullptr},
    {"PRODUCT_MESSAGE", KRVProductMessage, nullptr},
    {"PRODUCT_ERROR_MESSAGE", KRVProductErrorMessage, nullptr},
    {"PRODUCT_QUERY", KRVProductQuery, nullptr},
    {"EDITOR_TITLE", KRVEditorTitle, nullptr},
    {"PRODUCT_INI_FILE", KRVProductIniFile, nullptr},
    {"PRODUCT_INI_BACKUP", KRVProductIniBackup, nullptr},
    {"PRODUCT_HELP_FILE", KRVProductHelpFile, nullptr},
    {"PRODUCT_FRM_FILE", KRVProductFrmFile, nullptr},
    {"BMP_X_SIZE", nullptr, KRVProductCoverX},
    {"BMP_Y_SIZE", nullptr, KRVProductCoverY},
    {"PRODUCT_ICON_NUMBER", nullptr, KRVProductIconNumber},
    {"PRODUCT_TYPE", nullptr, KRVProductType},
};

// The library's identity table while it lives.
class Identity {
public:
    Identity(const std::string& file, Secrets secrets) : secrets_(std::move(secrets)) {
        table = KRSCreateTable();
        if (KRSLoad(file.c_str(), table, nullptr) != 0) return;
        release();
        throw Failure(std::string("cannot load the identity: ") + KRSLoadError());
    }
    ~Identity() { release(); }
    Identity(const Identity&) = delete;
    Identity& operator=(const Identity&) = delete;

    // Null for an absent key, which some accessors answer with "" or 0.
    Json value(const Accessor& accessor) const {
        if (KRVersionInfo(accessor.key) == nullptr) return nullptr;
        return accessor.text != nullptr ? Json(shown(accessor.key, accessor.text())) : Json(accessor.number());
    }

private:
    std::string shown(const char* key, const std::string& text) const {
        return secrets_.partsOf(key, text).shown(text);
    }
    static void release() {
        KRSDestroyTable(table);
        table = 0;
    }

    Secrets secrets_;
};

std::string cellOf(const Json& value) {
    if (value.is_null()) return "(absent)";
    return value.is_string() ? value.get<std::string>() : std::to_string(value.get<int>());
}

void printIdentityJson(const Identity& identity) {
    Json json = Json::object();
    for (const Accessor& accessor : kAccessors) json[accessor.key] = identity.value(accessor);
    printJson(json);
}

void printIdentityTable(const Identity& identity) {
    Table rows({{"KEY"}, {"VALUE"}});
    for (const Accessor& accessor : kAccessors) rows.add({accessor.key, cellOf(identity.value(accessor))});
    const auto size = terminalSize();
    std::cout << rows.text(Style(STDOUT_FILENO), size ? std::optional(size->columns) : std::nullopt);
}

int runIdentity(const CommandLine& line) {
    const Identity identity(line.arguments()[0], secretsOf(line));
    if (line.has("json")) {
        printIdentityJson(identity);
    } else {
        printIdentityTable(identity);
    }
    return kExitDone;
}

}  // namespace

Command identityCommand() {
    return {"identity",
            "print the product's names, versions and numbers",
            {{"FILE", "the settings file that contains them", false, false, Offer::Files}},
            {showSecretsOption()},
            "pmenv identity product.ini          a table; a key that is not in the file is marked (absent)\n"
            "pmenv identity product.ini --json   by key; a key that is not in the file is null",
            runIdentity,
            "Prints the value of each of the eighteen keys that the library knows. A number is the one that the value "
            "begins with: 640 of 640px. A key that is not in the file is marked (absent)."};
}
