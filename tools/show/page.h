// A saved log as a picture: one page of HTML that needs nothing else, runs no script and loads nothing. Whatever a peer
// wrote is in it as text, in printable form and of bounded length.
#ifndef QXNEGO_TOOLS_SHOW_PAGE_H
#define QXNEGO_TOOLS_SHOW_PAGE_H

#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "tools/show/log.h"

namespace tools {

// What is known beside the log.
struct PageFacts {
    std::vector<std::pair<const char *, std::string>> rows; // of a connection: a label and any text
    std::vector<std::size_t> token_sizes;                   // of each call's token for the peer; empty: not known
};

// At most so many records and properties; how many more there are is said.
inline constexpr std::size_t kMostOnPage = 2000;

void print_page(std::ostream &out, const SavedLog &log, const PageFacts &facts);

} // namespace tools

#endif
