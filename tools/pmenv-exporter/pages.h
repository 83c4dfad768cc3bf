// pages.h - what is answered to a request. Pure but for the board.
#pragma once

#include <memory>
#include <string>

#include "board.h"

struct Answer {
    unsigned status = 200;
    std::string type = "text/plain; charset=utf-8";
    std::shared_ptr<const std::string> body;
};

/// The answer to a request for `path`. `method` is the word that begins it, `accept` its header of that name, "" for none.
Answer answerTo(const std::string& method, const std::string& path, const std::string& accept, const Board& board);
