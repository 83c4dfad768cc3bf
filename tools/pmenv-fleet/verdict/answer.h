// answer.h - what a Prometheus server answers to a query. Pure: text in, values out.
//
// {"status":"success","data":{"resultType":"vector","result":[{"metric":{"instance":"gen1:9815"},"value":[1795309835,"0.05"]}]}}
// {"status":"error","errorType":"bad_data","error":"parse error: ..."}
#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

using Labels = std::map<std::string, std::string>;

struct Sample {
    Labels labels;
    std::optional<double> value;  ///< empty for NaN and infinity, as of a ratio without a base
};

struct Answer {
    std::vector<Sample> samples;
    std::vector<std::string> warnings;
};

/// An answer is refused whole. Throws Failure for an error that the server tells and for everything that is no answer;
/// `httpStatus` says more where the text is none of the server itself.
Answer readAnswer(std::string_view text, long httpStatus);
