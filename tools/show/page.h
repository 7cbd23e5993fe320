// A saved log as one page of HTML that needs nothing else: no scripts, nothing loaded, and of what a peer or a
// mechanism wrote only text, of limited length.
#ifndef QXNEGO_TOOLS_SHOW_PAGE_H
#define QXNEGO_TOOLS_SHOW_PAGE_H

#include <string>
#include <vector>

#include "tools/show/log.h"

namespace tools {

// What is known beside the log; all of it may be missing.
struct PageFacts {
    std::string title;
    std::vector<std::pair<std::string, std::string>> lines{}; // what it is, and its value
    std::vector<std::size_t> tokens{}; // bytes of this side's token of each call of the establishment, 0 for none
};

inline constexpr std::size_t kMostOfPage = std::size_t{1} << 20;  // bytes; beyond, records are left out and counted
std::string page_of(const SavedLog *log, const PageFacts &facts); // null: there is no log

} // namespace tools

#endif
