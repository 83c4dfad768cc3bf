#include "chart/csv.h"

namespace {

constexpr int kEnd = std::char_traits<char>::eof();

bool isEmpty(const std::vector<std::string>& fields) { return fields.size() == 1 && fields[0].empty(); }

}  // namespace

CsvReader::CsvReader(std::istream& input) : input_(*input.rdbuf()) {
    for (const int mark : {0xEF, 0xBB, 0xBF}) {
        if (input_.sgetc() != mark) break;
        input_.sbumpc();
    }
}

int CsvReader::take() {
    const int next = input_.sbumpc();
    if (next == '\n') ++line_;
    ++taken_;
    return next;
}

CsvReader::Result CsvReader::next(std::vector<std::string>* fields) {
    while (input_.sgetc() != kEnd) {
        const Result result = readRow(fields);
        if (result != Result::Row || !isEmpty(*fields)) return result;
    }
    return Result::End;
}

CsvReader::Result CsvReader::readRow(std::vector<std::string>* fields) {
    rowLine_ = line_;
    taken_ = 0;
    fields->assign(1, {});
    bool quoted = false;
    for (int next = take(); next != kEnd; next = take()) {
        if (taken_ > kLongestRow) return Result::TooLong;
        std::string& field = fields->back();
        if (quoted && next == '"' && input_.sgetc() == '"') {
            field += static_cast<char>(take());
        } else if (next == '"' && (quoted || field.empty())) {
            quoted = !quoted;
        } else if (next == ',' && !quoted) {
            fields->emplace_back();
        } else if (next == '\n' && !quoted) {
            break;
        } else if (next != '\r' || quoted || input_.sgetc() != '\n') {
            field += static_cast<char>(next);
        }
    }
    return Result::Row;
}
