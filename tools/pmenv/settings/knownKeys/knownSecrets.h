// knownSecrets.h - what is secret because the known keys say so.
#pragma once

#include <optional>
#include <string>

#include "commandLine.h"
#include "knownKeys/knownKeys.h"
#include "secrets.h"

/// `secrets`, and the settings that the known keys call secret.
Secrets withKnownKeys(Secrets secrets, const std::optional<KnownKeys>& keys);

/// What is secret for a command that shows the settings of `file`. Known keys that the setting PMENV_KEYS names wrongly
/// are passed over: the command, or pmenv check, tells what is wrong with them.
Secrets secretsFor(const CommandLine& line, const std::string& file);
