// Measures loading settings files.
#include <cstring>
#include <fstream>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>

#include <sys/stat.h>

#include "TempDir.h"
#include "areas.h"
#include "floors.h"
#include "krresolve.h"
#include "krs.h"

#ifdef ALTERNATIVES
#include <glib.h>
#include <ini.h>
#include <boost/property_tree/ini_parser.hpp>
#include <boost/property_tree/ptree.hpp>
#endif

namespace {

std::string fileText(int keys) {
    std::string text;
    for (int i = 0; i < keys; ++i) {
        text += "KEY_NUMBER_" + std::to_string(i) + " = /opt/pressmark/data/value-" + std::to_string(i) + ".dat\n";
    }
    return text;
}

void loadWithOurs(const std::string& path) {
    const int table = KRSCreateTable();
    check(KRSLoad(path.c_str(), table, KRSLoadFilter) != 0, "loading");
    KRSDestroyTable(table);
}

// One read into newly allocated memory, and one pass for the line ends.
void readAndCount(const std::string& path) {
    const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    struct stat status {};
    fstat(file, &status);
    const auto size = static_cast<std::size_t>(status.st_size);
    const std::unique_ptr<char[]> text(new char[size]);
    check(read(file, text.get(), size) == static_cast<ssize_t>(size), "reading");
    close(file);
    long lines = 0;
    const char* const end = text.get() + size;
    for (const char* at = text.get(); at != end; ++lines) {
        const void* const lineEnd = std::memchr(at, '\n', static_cast<std::size_t>(end - at));
        at = lineEnd != nullptr ? static_cast<const char*>(lineEnd) + 1 : end;
    }
    keep(lines);
}

#ifdef ALTERNATIVES
using Map = std::unordered_map<std::string, std::string>;

std::string_view trimmed(std::string_view text) {
    const std::size_t first = text.find_first_not_of(" \t");
    return first == text.npos ? std::string_view() : text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

// What a program without any library would write.
void loadWithGetline(const std::string& path) {
    Map map;
    std::ifstream file(path);
    for (std::string line; std::getline(file, line);) {
        const std::string_view text = trimmed(line);
        const std::size_t equals = text.find('=');
        if (text.empty() || text[0] == ';' || text[0] == '#' || equals == text.npos) continue;
        map.insert_or_assign(std::string(trimmed(text.substr(0, equals))),
                             std::string(trimmed(text.substr(equals + 1))));
    }
    keep(map.size());
}

void loadWithGlib(const std::string& path) {
    GKeyFile* const file = g_key_file_new();
    check(g_key_file_load_from_file(file, path.c_str(), G_KEY_FILE_NONE, nullptr) != 0, "GKeyFile");
    g_key_file_free(file);
}

int storeInMap(void* map, const char* /*section*/, const char* name, const char* value) {
    static_cast<Map*>(map)->insert_or_assign(name, value);
    return 1;
}

void loadWithInih(const std::string& path) {
    Map map;
    check(ini_parse(path.c_str(), storeInMap, &map) == 0, "inih");
    keep(map.size());
}

void loadWithPropertyTree(const std::string& path) {
    boost::property_tree::ptree tree;
    boost::property_tree::ini_parser::read_ini(path, tree);
    keep(tree.size());
}
#endif

void measureLoading(Report& report, const TempDir& dir, const char* size, int keys) {
    const std::string path = dir.writeFile("plain.ini", fileText(keys));
    Row row{"load with the load filter", size, {5, 4}, {}};
    row.ways.push_back({Kind::Ours, "", [&path] { loadWithOurs(path); }});
#ifdef ALTERNATIVES
    // GKeyFile does not support keys outside a section.
    const std::string section = dir.writeFile("section.ini", "[settings]\n" + fileText(keys));
    row.ways.push_back({Kind::Alternative, "getline + unordered_map", [&path] { loadWithGetline(path); }});
    row.ways.push_back({Kind::Alternative, "GKeyFile", [&section] { loadWithGlib(section); }});
    row.ways.push_back({Kind::Alternative, "inih + unordered_map", [&path] { loadWithInih(path); }});
    row.ways.push_back({Kind::Alternative, "Boost.PropertyTree", [&path] { loadWithPropertyTree(path); }});
#endif
    row.ways.push_back({Kind::Floor, "", [&path] { readAndCount(path); }});
    report.measure(row);
}

}  // namespace

void measureSettings(Report& report) {
    const TempDir dir;
    measureLoading(report, dir, "100 keys", 100);
    measureLoading(report, dir, "100,000 keys", 100'000);
    measureLoading(report, dir, "1,000,000 keys", 1'000'000);
}
