// knownKeys.h - the settings that a product knows: their types, ranges and help, as a file describes them.
//
// The file is written like settings. A section for each setting, named by its whole name, holds what is known of it:
//
//   [controller.PORT]
//   type  = integer       text, integer, number, boolean, path, file (that must exist) or choice; text unless given
//   least = 1             of an integer or a number
//   most  = 65535
//   unit  = seconds       of an integer or a number
//   values = a, b, c      of a choice
//   required = yes        yes or no; no unless given
//   secret = no           yes or no; no unless given
//   help  = a line about the setting
//
// References in it are not expanded. A name with a ']' cannot be written.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "hiddenParts.h"

/// The setting that names the file, from the directory of the settings file that it is in.
inline constexpr char kKeysSetting[] = "PMENV_KEYS";

struct KnownKey {
    enum class Type { Text, Integer, Number, Boolean, Path, File, Choice };
    /// A limit of a number, and as it is written.
    struct Limit {
        double value;
        std::string text;
    };

    std::string name;
    Type type = Type::Text;
    std::optional<Limit> least{};
    std::optional<Limit> most{};
    std::string unit{};
    std::vector<std::string> values{};
    bool isRequired = false;
    bool isSecret = false;
    std::string help{};

    bool isNumeric() const { return type == Type::Integer || type == Type::Number; }
    /// "an integer from 1 to 65535, in seconds", "one of a, b, c".
    std::string typeText() const;
    /// The help and the type: "where the controller listens (an integer from 1 to 65535)".
    std::string helpText() const;
};

class KnownKeys {
public:
    KnownKeys(std::string file, std::vector<KnownKey> keys);

    const std::string& file() const { return file_; }
    /// In the order of the file.
    const std::vector<KnownKey>& all() const { return keys_; }
    /// Null for an unknown one.
    const KnownKey* find(const std::string& name) const;
    const std::vector<std::string>& names() const { return names_; }

private:
    std::string file_;
    std::vector<KnownKey> keys_;
    std::vector<std::string> names_;
    std::unordered_map<std::string, std::size_t> byName_;
};

/// Throws Failure with each mistake as file:line:column: error: text, a line each.
KnownKeys readKnownKeys(const std::string& file);

// --- values -------------------------------------------------------------------------------------------------------------

/// What is wrong with an expanded value: its type, or for a number its range; "" when nothing is.
std::string typeProblem(const KnownKey& key, const std::string& value, const HiddenParts& hidden = {});
std::string rangeProblem(const KnownKey& key, const std::string& value, const HiddenParts& hidden = {});

/// The value in quotes as a message may show it, or (hidden).
std::string shownValue(const std::string& value, const HiddenParts& hidden);

/// "12", "-1.5": decimal digits only, and for an integer no point.
std::optional<double> decimalNumber(const std::string& text);
bool isInteger(const std::string& text);
/// yes, no, true, false, on, off, 1 or 0, in any case.
bool isBoolean(const std::string& text);
