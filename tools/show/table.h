// Aligned tables of plain text. The last column is broken at blanks so that no line is wider than the page.
#ifndef QXNEGO_TOOLS_SHOW_TABLE_H
#define QXNEGO_TOOLS_SHOW_TABLE_H

#include <ostream>
#include <string>
#include <vector>

namespace tools {

inline constexpr std::size_t kPageWidth = 100;    // columns, at most
inline constexpr std::size_t kMostRows = 20'000;  // a token has fewer elements
inline constexpr std::size_t kWidestCell = 64;    // bytes, of all columns but the last
inline constexpr std::size_t kLongestCell = 1024; // bytes, of the last one

// Columns of what is written there: those of a narrower terminal, but no less than a table needs.
std::size_t page_width(const std::ostream &out);

class Table {
  public:
    using Row = std::vector<std::string>;

    explicit Table(Row header) { rows_.push_back(std::move(header)); }

    // A row has as many cells as the header. What is too long in a cell is left out, and so are rows beyond the most,
    // which are counted at the end.
    void add(Row row);

    // A line across all columns.
    void add_line(std::string line) { rows_.push_back({std::move(line)}); }
    void print(std::ostream &out, std::size_t indent = 2) const;

  private:
    std::vector<Row> rows_;
    std::size_t left_out_ = 0;
};

// The text in lines of at most `width` columns, broken at blanks; a word that is longer is cut. At least one line.
std::vector<std::string> wrap(const std::string &text, std::size_t width);

} // namespace tools

#endif
