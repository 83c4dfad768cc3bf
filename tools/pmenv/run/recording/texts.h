// texts.h - texts of any bytes, as names of processes are, in JSON, which holds UTF-8 only.
#pragma once

#include <string>
#include <string_view>

namespace recording {

/// A byte that belongs to no character of UTF-8 becomes \xNN, and a backslash \\, so that nothing is lost:
///   "sender" -> "sender"   "a\b" -> "a\\b"   a single byte 255 -> "\xff"
std::string toUtf8(std::string_view bytes);

/// The bytes that toUtf8 was given. Other backslashes stay as they are.
std::string fromUtf8(std::string_view text);

/// toUtf8 as a JSON string, with its quotation marks.
std::string jsonText(std::string_view bytes);

}  // namespace recording
