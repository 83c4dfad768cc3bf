#include "check/references.h"

namespace {

// The load has not come to it yet, or is just there.
bool isTooEarly(const Reference& reference, const Expansion& expansion, const SettingsText& settings) {
    const Entry* const definition = settings.isFurther() ? nullptr : settings.find(reference.name);
    if (definition == nullptr) return false;
    if (definition == expansion.entry) return true;
    return expansion.when == Expansion::When::Loading && definition->line > expansion.entry->line &&
           !definition->leftOut;
}

}  // namespace

Misreference whatIsWrong(const Reference& reference, const Expansion& expansion, const SettingsText& settings) {
    if (reference.isDefined) return Misreference::None;
    const bool isLoading = expansion.when == Expansion::When::Loading;
    if (isLoading && reference.name.find('}') != std::string::npos) return Misreference::Swallowed;
    if (reference.isVariable) return Misreference::UnsetVariable;
    return isTooEarly(reference, expansion, settings) ? Misreference::TooEarly : Misreference::UndefinedSetting;
}

std::string meansOther(const char* what, const std::string& written) {
    return std::string("; did you mean the ") + what + ", '" + written + "'?";
}
