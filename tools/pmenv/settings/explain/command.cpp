// explain: why a value is what it is.
#include <functional>
#include <iostream>
#include <string>

#include <unistd.h>

#include "commandLine.h"
#include "explain/explanation.h"
#include "explain/explanationJson.h"
#include "explain/explanationText.h"
#include "failure.h"
#include "knownKeys/chosenKeys.h"
#include "knownKeys/knownSecrets.h"
#include "krenv.h"
#include "nearest.h"
#include "settingsFile.h"

namespace {

void checkAsked(const CommandLine& line) {
    const bool hasName = !line.arguments().empty();
    if (hasName && line.has("text")) {
        throw Failure("NAME and --text do not go together; see 'pmenv explain --help'", kExitUsage);
    }
    if (line.has("text") && line.has("file")) {
        throw Failure("--text and --file do not go together; see 'pmenv explain --help'", kExitUsage);
    }
    if (line.has("text") && line.has("keys")) {
        throw Failure("--text and --keys do not go together; see 'pmenv explain --help'", kExitUsage);
    }
    if (!hasName && !line.has("text")) {
        throw Failure("'explain' needs NAME or --text; see 'pmenv explain --help'", kExitUsage);
    }
}

// Fills the run-time table as a host program would.
void setRunTimeValue(const std::string& assignment) {
    const std::size_t equals = assignment.find('=');
    if (equals == std::string::npos) {
        // Not quoted, because it may hold a secret.
        throw Failure("--set needs NAME=VALUE, with a '='; see 'pmenv explain --help'", kExitUsage);
    }
    const std::string name = assignment.substr(0, equals);
    KREnvContainerClass env;
    if (env.KRESetEnvValue(name.c_str(), assignment.c_str() + equals + 1) != nullptr) return;
    throw Failure("--set " + name.substr(0, 60) +
                      ": the run-time table refuses it; it holds 1024 names, names and values of 255 characters",
                  kExitUsage);
}

// A file of known keys that the settings name wrongly is no reason to explain nothing.
std::optional<KnownKeys> keysFor(const CommandLine& line, const Explanation& setting) {
    if (line.has("keys")) return keysOfOption(line);
    try {
        return keysOfSetting(setting.file, setting.value);
    } catch (const Failure& failure) {
        printWarning(failure.what());
        return std::nullopt;
    }
}

// With what is known of the setting. `explain` explains a setting of the file that it is in.
Explanation withHelp(const CommandLine& line, const std::function<Explanation(const std::string&)>& explain) {
    const std::string& name = line.arguments()[0];
    Explanation explanation = explain(name);
    const std::optional<KnownKeys> keys = keysFor(line, explain(kKeysSetting));
    const KnownKey* const known = keys ? keys->find(name) : nullptr;
    if (known != nullptr) explanation.known = *known;
    return explanation;
}

Explanation explained(const CommandLine& line) {
    const std::string further = furtherName(line);
    const std::string file = further.empty() ? "" : furtherFile(loadSettings(line), further);
    const Secrets secrets = secretsFor(line, settingsFile(line));
    const ObservedSettings settings(settingsFile(line), secrets);
    if (line.has("text")) return explainText(settings, line.text("text"));
    if (further.empty()) return withHelp(line, [&](const std::string& name) { return explainSetting(settings, name); });
    const FurtherEntries entries(file, secrets);
    return withHelp(line, [&](const std::string& name) { return explainFurther(settings, entries, name); });
}

void print(const Explanation& explanation) {
    const auto size = terminalSize();
    std::cout << explanationText(explanation, Style(STDOUT_FILENO), size ? std::optional(size->columns) : std::nullopt);
}

int runExplain(const CommandLine& line) {
    checkAsked(line);
    for (const std::string& assignment : line.texts("set")) setRunTimeValue(assignment);
    const Explanation explanation = explained(line);
    const bool undefined = explanation.failure && explanation.failure->reason == ExplainedFailure::Reason::NotDefined;
    if (line.has("json")) {
        printJson(explanationJson(explanation));
    } else if (!undefined) {
        print(explanation);
    }
    if (undefined) {
        printError(explanation.file + ": " + explanation.name + ": " + failureText(*explanation.failure) +
                   didYouMean(explanation.root.nearest));
    }
    return explanation.failure ? kExitWrong : kExitDone;
}

}  // namespace

Command explainCommand() {
    return {
        "explain",
        "print where a value comes from, step by step",
        {{"NAME", "a setting; with its section in front where it has one: section.KEY", true, false, Offer::Settings}},
        {furtherFileOption(),
         keysOption(),
         {"text", Option::Kind::Text, "TEXT",
          "explain how this text is expanded when it is read, instead of a setting"},
         {"set", Option::Kind::Text, "NAME=VALUE",
          "set a run-time value first, as a program does; may be given several times"},
         showSecretsOption()},
        "pmenv explain LOG_DIR                      a tree down to the sources, the final text last\n"
        "pmenv explain LOG_DIR --json               the same as data\n"
        "pmenv explain TIMEOUT --file engine.ini    a setting of a further settings file\n"
        "pmenv explain --text '$(HOME)/#(LOG_DIR)'  any text, quoted from the shell\n"
        "pmenv explain USERS --set USERS=50         as in a program that has set it",
        runExplain,
        "The answer is a tree: the setting's text in the file, each reference with its value, in the order in which "
        "the library replaces them, and the final text last. A reference in braces was replaced when the file was "
        "loaded, one in parentheses when the value is read. If there is no value, the last lines say why; a cycle is "
        "shown as a chain, A -> B -> A, with the place of each. Up to 20 references of a text, 20 levels and about "
        "200 references in all are shown, with the number of those that are not shown.\n\n"
        "The settings file is named once, at the top; a place like 35:16 is a line and a column in it. A text that "
        "could be mistaken for another, or for a remark like (empty), is shown in quotes, with invisible characters "
        "written with a backslash.\n\n"
        "With --file the references refer to pressmark.ini, never to FILE itself.\n\n"
        "If the setting is among the known keys (see check), its help and its type are shown.\n\n"
        "What is secret is shown as (hidden), as 'list' does. The name of a reference in a secret text is shown when "
        "it was written there and is defined, so that one can see where a secret comes from. --show-secrets shows "
        "all.\n\n"
        "A value of --set takes precedence over the setting of that name and is not expanded.\n\n"
        "With --json the answer is an object with file; with --file, pressmark (the file that references mean); name "
        "(not for a text); value (the final text, or "
        "null); known (type and help, where the setting is a known key); failure (null, or an object with reason, when "
        "it happened (load or read), text, and for a "
        "cycle the chain); and explanation. This one, and each of its steps, has source (setting, "
        "environment, run-time table, text or nowhere), place (line and column, of a setting), raw (the "
        "value at its source), stored (a setting as it was loaded, null when it was left out) and value "
        "(what it became, null where that failed). A step also has reference (as written), expanded (load "
        "or read) and at (where it stands: line and column in the file, or the column alone in another "
        "text; null when a substitution put it there).\n\n"
        "Where they apply: replaced and leftOut (lines of other entries of the same key), definedBelow "
        "(the line of a setting that did not exist yet), hidden (the place of a setting that a run-time "
        "value hides), nearest (names that may be meant), stepsLeftOut (how many more references there "
        "are at all levels below), rawLength and the like (the length of a text that is cut), rawHidden and the "
        "like (true for a text in which something is hidden)."};
}
