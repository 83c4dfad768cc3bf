// krexport.h - marks what libkrenv.so offers; everything else in it stays hidden.
#pragma once

#define KRENV_EXPORT __attribute__((visibility("default")))
