// pmenv_pages - writes the manual page or a shell's completion: it fills the places of a template from the commands.
//
//   pmenv_pages <pmenv.1.in >pmenv.1
#include <iostream>
#include <iterator>
#include <string>
#include <utility>

#include "commands.h"
#include "completion.h"
#include "manualPage.h"

namespace {

using Maker = std::string (*)(const Grammar&);

std::string version(const Grammar&) { return PMENV_VERSION; }

// A place is a line of its own, or a word in one.
constexpr std::pair<const char*, Maker> kPlaces[] = {
    {"@VERSION@", version},
    {"@MANUAL_COMMANDS@\n", manualCommands},
    {"@MANUAL_OPTIONS@\n", manualOptions},
    {"@MANUAL_EXAMPLES@\n", manualExamples},
    {"@WORDS@", completionWords},
    {"@GROUPS@", completionGroups},
    {"@GLOBAL_OPTIONS@", completionGlobalOptions},
    {"@SECOND_WORDS@\n", completionSecondWords},
    {"@OPTIONS@\n", completionOptions},
    {"@ARGUMENTS@\n", completionArguments},
    {"@OPTION_ARGUMENTS@\n", completionOptionArguments},
    {"@STARTERS@\n", completionStarters},
    {"@VALUE_OPTIONS@", completionValueOptions},
    {"@ZSH_WORDS@", zshWords},
    {"@ZSH_SECOND_WORDS@\n", zshSecondWords},
    {"@ZSH_OPTIONS@\n", zshOptions},
    {"@ZSH_GLOBAL_OPTIONS@", zshGlobalOptions},
    {"@FISH_STARTERS@", fishStarters},
    {"@FISH_OFFERS@\n", fishOffers},
};

void fill(std::string* text, const std::string& place, Maker make) {
    const std::size_t at = text->find(place);
    if (at != std::string::npos) text->replace(at, place.size(), make(pmenvGrammar()));
}

}  // namespace

int main() {
    std::string text{std::istreambuf_iterator<char>(std::cin), std::istreambuf_iterator<char>()};
    for (const auto& [place, make] : kPlaces) fill(&text, place, make);
    std::cout << text << std::flush;
    return std::cout ? 0 : 1;
}
