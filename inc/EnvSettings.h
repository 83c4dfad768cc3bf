// EnvSettings.h - reads properties of settings files.
//
// A settings table is given by its handle (krs.h); 0 means no table. Values are stored as the file has them. Their $()
// and #() references are expanded when a property is read, always with environment variables and settings of
// pressmark.ini, never with entries of the table that holds the value.
//
// Reading a property takes about 40 KB of stack, for the container object that expands it.
//
// Failures are reported as Error records of category "PMEnvironment". Threads: nothing is locked; reading the same
// table on several threads is safe, see krs.h.
#pragma once

#include <string>

#include "OptionalValue.h"
#include "krenv.h"
#include "krexport.h"

namespace nEnvSettings {

/// The table of pressmark.ini, owned by the library. 0, after an Error record without text, before KREInit.
KRENV_EXPORT int gPressmarkIniTable();

/// Creates a table in `handle` and loads the file `fileName` of the directory that the setting KR_BIN names (as `env`
/// reads it: the setting, not the environment variable). The caller owns the table in every case and releases it with
/// KRSDestroyTable. It stays empty when KR_BIN is not set (nothing is logged), and after an Error record when the file
/// cannot be loaded or its path is longer than 4095 characters.
KRENV_EXPORT void gFileInitTable(KREnvContainerClass& env, const char* fileName, int& handle);

/// Puts the expanded value of `key` into `out`, which must be empty. Leaves `out` unchanged when there is no such key
/// or its expansion fails.
KRENV_EXPORT void gGetPropertyString(OptionalValue<std::string>& out, int handle, const char* key);

/// The expanded value of `key`; "" after an Error record when there is no such key or its expansion fails.
KRENV_EXPORT std::string gGetPropertyStream(int handle, const char* key);

}  // namespace nEnvSettings
