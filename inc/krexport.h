// krexport.h - marks the symbols that libkrenv.so exports; all others stay hidden.
#pragma once

#define KRENV_EXPORT __attribute__((visibility("default")))

/// Hides the private functions of an exported class, so that programs cannot depend on them.
#define KRENV_HIDDEN __attribute__((visibility("hidden")))
