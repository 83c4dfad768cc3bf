// junit.h - judgements as a JUnit report, which pipelines show beside the results of their tests.
#pragma once

#include <string>
#include <vector>

#include "judgeFormats.h"
#include "judgement/judgement.h"

/// What one load generator's watch came to.
struct JudgedRun {
    JudgeContext context;
    Judged judged;
    JudgeLimits limits;
};

/// One test case for each load generator: passed when the verdict is clean, failed when it is spoiled, and in error when it
/// cannot be told, because a pipeline must not show that as a success.
std::string junitXml(const std::vector<JudgedRun>& runs);
