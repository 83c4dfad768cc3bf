// knownSecrets.h - what is secret because the known keys say so.
#pragma once

#include <string>

#include "commandLine.h"
#include "knownKeys/knownKeys.h"
#include "secrets.h"

/// `secrets`, and the settings that the known keys call secret.
Secrets withKnownKeys(Secrets secrets, const KnownKeys& keys);

/// What is secret for a command that shows the settings of `file`, and with --file those of a further one: what names
/// tell, and what any known keys call secret, those of --keys and those that PMENV_KEYS of either file names. Known keys
/// that PMENV_KEYS names wrongly are passed over: the command, or pmenv check, tells what is wrong with them.
Secrets secretsFor(const CommandLine& line, const std::string& file);
