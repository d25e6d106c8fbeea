// A line goes out in one piece, so that lines of several runs at once do not mix.
#include "message.h"

#include <algorithm>
#include <iostream>

namespace tavik {

void print_line(std::string text) {
    const auto is_control = [](char c) { return (c >= 0 && c < ' ') || c == '\x7F'; };
    std::replace_if(text.begin(), text.end(), is_control, '?');
    std::cerr << text + '\n';
}

}  // namespace tavik
