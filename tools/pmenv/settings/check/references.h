// references.h - what may be wrong with a reference; each of these is the matter of one rule.
#pragma once

#include "check/expansion.h"
#include "check/settingsText.h"

enum class Misreference { None, Swallowed, UnsetVariable, TooEarly, UndefinedSetting };

Misreference whatIsWrong(const Reference& reference, const Expansion& expansion, const SettingsText& settings);

/// "; did you mean the setting, '#(NAME)'?": a name that the other sign would find.
std::string meansOther(const char* what, const std::string& written);
