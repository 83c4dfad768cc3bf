// Loading settings files and looking settings up.
#include <fstream>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "TempDir.h"
#include "krenv.h"
#include "krs.h"
#include "pairs.h"

namespace {

using Map = std::unordered_map<std::string, std::string>;

std::string keyAt(int index) { return "section.KEY_NUMBER_" + std::to_string(index); }

std::string fileText(int keys) {
    std::string text;
    for (int i = 0; i < keys; ++i) text += keyAt(i) + " = /opt/pressmark/data/value-" + std::to_string(i) + ".dat\n";
    return text;
}

std::string_view trimmed(std::string_view text) {
    const std::size_t first = text.find_first_not_of(" \t");
    return first == text.npos ? std::string_view() : text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

// What a program without the library would write.
Map loadWithGetline(const std::string& path) {
    Map map;
    std::ifstream file(path);
    for (std::string line; std::getline(file, line);) {
        const std::string_view text = trimmed(line);
        const std::size_t equals = text.find('=');
        if (text.empty() || text[0] == ';' || text[0] == '#' || equals == text.npos) continue;
        map.insert_or_assign(std::string(trimmed(text.substr(0, equals))),
                             std::string(trimmed(text.substr(equals + 1))));
    }
    return map;
}

void loadAndDestroy(const std::string& path) {
    const int table = KRSCreateTable();
    check(KRSLoad(path.c_str(), table, nullptr) != 0, "loading");
    KRSDestroyTable(table);
}

void addLoading(const TempDir& dir, const char* what, int keys) {
    const std::string path = dir.writeFile(std::to_string(keys) + ".ini", fileText(keys));
    addPair(
        what, "getline + unordered_map", [path] { loadAndDestroy(path); },
        [path] { benchmark::DoNotOptimize(loadWithGetline(path).size()); });
}

std::vector<std::string> keys(int count) {
    std::vector<std::string> keys;
    for (int i = 0; i < count; ++i) keys.push_back(keyAt(i));
    return keys;
}

void addLookUp(const TempDir& dir, const char* what, int count) {
    const std::string path = dir.writeFile("look-up.ini", fileText(count));
    const int table = KRSCreateTable();  // lives until the program ends
    check(KRSLoad(path.c_str(), table, nullptr) != 0, "loading");
    const auto map = std::make_shared<const Map>(loadWithGetline(path));
    for (const std::string& key : keys(count)) check(map->at(key) == KRSGetValue(table, key.c_str()), key.c_str());

    // Both are asked with C strings, as hosts do.
    addPair(
        what, "unordered_map::find",
        [table, order = Shuffled(keys(count))]() mutable {
            benchmark::DoNotOptimize(KRSGetValue(table, order.next()));
        },
        [map, order = Shuffled(keys(count))]() mutable {
            benchmark::DoNotOptimize(map->find(order.next())->second.c_str());
        });
}

}  // namespace

void addSettingsPairs() {
    static const TempDir dir;  // its files are read while the pairs run
    addLoading(dir, "load a file of 100,000 settings", 100'000);
    addLoading(dir, "load a file of 1,000,000 settings", 1'000'000);
    addLookUp(dir, "look up one of 100 settings", 100);
    addLookUp(dir, "look up one of 1,000,000 settings", 1'000'000);
}
