// Aligned tables of plain text. The last column is broken at blanks so that no line is wider than the page.
#ifndef QXNEGO_TOOLS_SHOW_TABLE_H
#define QXNEGO_TOOLS_SHOW_TABLE_H

#include <ostream>
#include <string>
#include <vector>

namespace tools {

inline constexpr std::size_t kPageWidth = 100;

class Table {
  public:
    using Row = std::vector<std::string>;

    explicit Table(Row header) { rows_.push_back(std::move(header)); }

    // A row has as many cells as the header.
    void add(Row row) { rows_.push_back(std::move(row)); }

    // A line across all columns.
    void add_line(std::string line) { rows_.push_back({std::move(line)}); }
    void print(std::ostream &out, std::size_t indent = 2) const;

  private:
    std::vector<Row> rows_;
};

// The text in lines of at most `width` columns, broken at blanks; a word that is longer is cut. At least one line.
std::vector<std::string> wrap(const std::string &text, std::size_t width);

} // namespace tools

#endif
