// engineName.h - how the product's load engines are recognised.
#pragma once

/// What the kernel keeps of the load engines' command name.
constexpr char kEngineName[] = "PMLoadEngineMai";
