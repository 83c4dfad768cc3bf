// KrfExport.h - marks what libkrfacilities.so offers; everything else in it stays hidden.
#pragma once

#define KRF_EXPORT __attribute__((visibility("default")))

/// For the private functions of a class that is marked: programs do not come to depend on them.
#define KRF_HIDDEN __attribute__((visibility("hidden")))
