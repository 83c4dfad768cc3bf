// KrfExport.h - marks what libkrfacilities.so offers; everything else in it stays hidden.
#pragma once

#define KRF_EXPORT __attribute__((visibility("default")))
