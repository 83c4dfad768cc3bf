// settings.h - the settings of one file, loaded through the library, and what is wrong with them.
#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "secrets.h"

/// How many characters an expanded value may have to be read.
constexpr std::size_t kLongestExpansion = 2047;

/// One setting as the user asked for it.
struct Setting {
    std::string name;
    std::optional<std::string> stored;    ///< as loaded; empty when there is no such setting
    std::optional<std::string> expanded;  ///< empty when there is none or its expansion failed
    std::string problem;                  ///< why something is missing
    int line = 0;                         ///< in the file, from 1
    bool hidesStored = false;             ///< what is secret in that text is replaced by (hidden)
    bool hidesExpanded = false;
};

class KRSLoadObserver;
class LoadedSecrets;
class Settings;

/// "FILE:LINE" of the setting, for messages; "FILE" when it is on no line.
std::string placeOf(const Settings& settings, const Setting& setting);

class Settings {
public:
    /// Whether a value that the library left out because its references form a cycle gets a warning with its name. A
    /// load that only prepares another one would warn twice.
    enum class Warnings { On, Off };

    /// Loads `file` as the library's settings. Throws Failure with the reason, line and column when it is rejected.
    explicit Settings(std::string file, Warnings warnings = Warnings::On);
    /// The same with warnings, for a command that shows all settings.
    Settings(std::string file, const Secrets& secrets);

    const std::string& file() const { return file_; }

    /// The settings in force, in file order, with what is secret hidden.
    std::vector<Setting> all() const;
    /// The setting `name`, nothing hidden; where there is none, the problem suggests the nearest names.
    Setting read(const std::string& name) const;
    /// The same with what is secret hidden.
    Setting readHidden(const std::string& name) const;

protected:
    /// Settings that are still to be loaded into `table_`.
    struct NotLoaded {};
    Settings(NotLoaded, std::string file, const Settings& meant) : file_(std::move(file)), meant_(meant.meant_) {}

    int table_ = 0;  // owned by the library, unless a derived class says otherwise

private:
    struct LeftOut {
        std::string name;
        int line;
    };

    void load(KRSLoadObserver* observer);
    void hideSecrets(Setting& setting) const;
    void findLeftOut();
    void warnOfLeftOut() const;
    std::string whyAbsent(const std::string& name) const;

    std::string file_;
    std::shared_ptr<const LoadedSecrets> meant_;  // of the settings that references mean; null when nothing is hidden
    std::vector<LeftOut> leftOut_;
};

/// The path of the further settings file `name`, in the directory that the setting KR_BIN names. Throws Failure when
/// there is no KR_BIN, or the path is too long.
std::string furtherFile(const Settings& settings, const std::string& name);

/// A further settings file, in the directory that the setting KR_BIN names. Its values are stored as the file has them;
/// their references are expanded against `settings`.
class FurtherSettings : public Settings {
public:
    /// Throws Failure when there is no KR_BIN, and with the reason, line and column when the file is rejected.
    FurtherSettings(const Settings& settings, const std::string& name);
    ~FurtherSettings();
    FurtherSettings(const FurtherSettings&) = delete;
    FurtherSettings& operator=(const FurtherSettings&) = delete;
};
