#include "exposition.h"

#include "recording/texts.h"

std::string label(const char* name, const std::string& value) {
    std::string text = std::string(name) + "=\"";
    for (const char character : recording::toUtf8(value)) {
        if (character == '"' || character == '\\') text += '\\';
        text += character == '\n' ? "\\n" : std::string(1, character);
    }
    return text + "\"";
}

std::string metricHeading(const std::string& name, const char* type, const std::string& help) {
    return "# HELP " + name + " " + help + "\n# TYPE " + name + " " + type + "\n";
}
