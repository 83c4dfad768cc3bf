// isoTime.h - moments as programs write them.
#pragma once

#include <chrono>
#include <string>

/// "2026-11-21T02:20:33.123Z".
std::string isoTime(std::chrono::system_clock::time_point time);
