// Tables: widths are measured over all rows; the last column takes what the page has left.
#include "tools/show/table.h"

#include <algorithm>
#include <iostream>

#include <sys/ioctl.h>
#include <unistd.h>

#include "common/text.h"

namespace tools {

namespace {

constexpr std::size_t kGap = 2;
constexpr std::size_t kNarrowest = 20; // of the last column
constexpr std::size_t kNarrowestPage = 40;

// Columns that a text takes: its UTF-8 characters.
std::size_t columns(const std::string &text) {
    return static_cast<std::size_t>(
        std::count_if(text.begin(), text.end(), [](char c) { return (static_cast<unsigned char>(c) & 0xC0) != 0x80; }));
}

std::string padded(const std::string &text, std::size_t width) {
    const std::size_t used = columns(text);
    return text + std::string(width > used ? width - used : 0, ' ');
}

std::vector<std::size_t> widths_of(const std::vector<Table::Row> &rows) {
    std::vector<std::size_t> widths(rows.front().size(), 0);
    for (const Table::Row &row : rows)
        for (std::size_t i = 0; i < widths.size() && row.size() == widths.size(); ++i)
            widths[i] = std::max(widths[i], columns(row[i]));
    return widths;
}

void print_line(std::ostream &out, std::string line) {
    line.erase(line.find_last_not_of(' ') + 1);
    out << line << '\n';
}

} // namespace

std::size_t page_width(const std::ostream &out) {
    winsize size{};
    const int descriptor = &out == &std::cerr ? STDERR_FILENO : STDOUT_FILENO;
    if (ioctl(descriptor, TIOCGWINSZ, &size) != 0 || size.ws_col == 0)
        return kPageWidth;
    return std::clamp<std::size_t>(size.ws_col, kNarrowestPage, kPageWidth);
}

std::vector<std::string> wrap(const std::string &text, std::size_t width) {
    std::vector<std::string> lines;
    std::size_t begin = 0;
    while (text.size() - begin > width) {
        std::size_t end = text.rfind(' ', begin + width);
        if (end == std::string::npos || end <= begin)
            end = begin + width;
        lines.push_back(text.substr(begin, end - begin));
        begin = std::min(text.find_first_not_of(' ', end), text.size());
    }
    if (begin < text.size() || lines.empty())
        lines.push_back(text.substr(begin));
    return lines;
}

void Table::add(Row row) {
    if (rows_.size() > kMostRows) {
        ++left_out_;
        return;
    }
    for (std::string &cell : row)
        cell = common::printable(cell, &cell == &row.back() ? kLongestCell : kWidestCell);
    rows_.push_back(std::move(row));
}

void Table::print(std::ostream &out, std::size_t indent) const {
    std::vector<std::size_t> widths = widths_of(rows_);
    std::size_t start = indent; // column where the last cell begins
    for (std::size_t i = 0; i + 1 < widths.size(); ++i)
        start += widths[i] + kGap;
    const std::size_t page = page_width(out);
    widths.back() = std::min(widths.back(), std::max(kNarrowest, page - std::min(start, page)));

    const auto print_row = [&](const Row &row) {
        std::string line(indent, ' ');
        if (row.size() != widths.size())
            return print_line(out, line + row.front());
        for (std::size_t i = 0; i + 1 < row.size(); ++i)
            line += padded(row[i], widths[i] + kGap);
        for (const std::string &piece : wrap(row.back(), widths.back())) {
            print_line(out, line + piece);
            line.assign(start, ' ');
        }
    };
    print_row(rows_.front());
    Row rule;
    for (std::size_t width : widths)
        rule.emplace_back(width, '-');
    print_row(rule);
    std::for_each(rows_.begin() + 1, rows_.end(), print_row);
    if (left_out_ != 0)
        print_row({"and " + std::to_string(left_out_) + " more"});
}

} // namespace tools
