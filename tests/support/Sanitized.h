// Sanitized.h - whether the code under test is built with sanitizers, in which everything takes ten times as long.
//
// The compiler's own macros do not tell it: tests can be built without the sanitizers that what they test is built with.
#pragma once

#ifdef KRENV_SANITIZED
constexpr bool kSanitized = true;
#else
constexpr bool kSanitized = false;
#endif
