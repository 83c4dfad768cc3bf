// A byte-order mark that is not the file's first character.
#include "check/rule.h"

namespace {

constexpr char kMark[] = "\xef\xbb\xbf";

void checkByteOrderMark(const SettingsLine& line, const SettingsText& /*settings*/, Report& report) {
    const std::size_t position = line.text.find(kMark);
    if (position == std::string::npos) return;
    report.at(line.number, position + 1, 3,
              "a byte-order mark, which cannot be seen but belongs to the text here; remove these three bytes");
}

}  // namespace

Rule byteOrderMarkRule() {
    return {
        "byte-order-mark",
        Rule::Severity::Error,
        "A UTF-8 byte-order mark that does not begin the file, as where files were put together. It cannot be seen, "
        "but is a part of the key or of the value, so that a reference to the key as it looks finds nothing.",
        "Remove the three bytes EF BB BF.",
        "A = 1\n\xef\xbb\xbfPORT = 8080\n",
        "A = 1\nPORT = 8080\n",
        checkByteOrderMark};
}
