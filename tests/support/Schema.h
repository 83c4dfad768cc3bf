// Schema.h - holds JSON against its schema.
#pragma once

#include <algorithm>
#include <fstream>
#include <string>

#include <nlohmann/json.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

inline bool isOfType(const nlohmann::json& value, const std::string& type) {
    if (type == "number") return value.is_number();
    if (type == "integer") return value.is_number_integer();
    return type == (value.is_null() ? "null" : value.type_name());
}

inline bool isOfOneType(const nlohmann::json& value, const nlohmann::json& types) {
    if (types.is_string()) return isOfType(value, types);
    return std::any_of(types.begin(), types.end(), [&](const nlohmann::json& type) { return isOfType(value, type); });
}

/// Each value has a type that the schema allows, each object has exactly the members that it names, and each text that may
/// be one of a few is.
inline void expectAsDescribed(const nlohmann::json& value, const nlohmann::json& given, const nlohmann::json& root,
                              const std::string& where) {
    if (given.contains("$ref")) {
        const std::string reference = given.at("$ref");
        return expectAsDescribed(value, root.at("$defs").at(reference.substr(reference.rfind('/') + 1)), root, where);
    }
    const nlohmann::json& choices = given.value("enum", nlohmann::json::array({value}));
    EXPECT_THAT(choices, testing::Contains(value)) << where;
    EXPECT_TRUE(!given.contains("type") || isOfOneType(value, given.at("type"))) << where << ": " << value;
    if (value.is_object()) {
        for (const nlohmann::json& name : given.at("required"))
            EXPECT_TRUE(value.contains(name)) << where << "." << name;
        for (const auto& [name, member] : value.items()) {
            ASSERT_TRUE(given.at("properties").contains(name)) << where << "." << name;
            expectAsDescribed(member, given.at("properties").at(name), root, where + "." + name);
        }
    }
    if (value.is_array()) {
        for (const nlohmann::json& item : value) expectAsDescribed(item, given.at("items"), root, where + "[]");
    }
}

/// The same with the file of a schema.
inline void expectAsDescribed(const nlohmann::json& value, const std::string& schemaFile) {
    std::ifstream file(schemaFile);
    const nlohmann::json schema = nlohmann::json::parse(file);
    expectAsDescribed(value, schema, schema, "");
}
