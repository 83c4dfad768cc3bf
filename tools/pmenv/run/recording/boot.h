// boot.h - tells whether two processes share a clock.
#pragma once

#include <string>

namespace recording {

/// Of the host since it was booted, in all its containers; "" where the kernel does not tell.
std::string readBootId();

}  // namespace recording
