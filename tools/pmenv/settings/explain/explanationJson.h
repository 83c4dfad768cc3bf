// explanationJson.h - an explanation as data.
#pragma once

#include "explain/explanation.h"
#include "output.h"

Json explanationJson(const Explanation& explanation);
