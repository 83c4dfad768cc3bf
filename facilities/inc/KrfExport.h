// KrfExport.h - marks the symbols that libkrfacilities.so exports; all others stay hidden.
#pragma once

#define KRF_EXPORT __attribute__((visibility("default")))

/// Hides the private functions of an exported class, so that programs cannot depend on them.
#define KRF_HIDDEN __attribute__((visibility("hidden")))
