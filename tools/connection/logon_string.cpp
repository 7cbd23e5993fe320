#include "tools/connection/logon_string.h"

#include <algorithm>
#include <array>
#include <string>

#include <strings.h>

#include "tools/failure.h"

namespace tools {

namespace {

constexpr std::array<std::string_view, 8> kKeywords{"authcid", "password", "realm",   "authzid",
                                                    "mech",    "user",     "profile", "userproperties"};
constexpr std::string_view kBlanks = " \t\n\v\f\r";

bool is_keyword(std::string_view word) {
    return std::ranges::any_of(kKeywords, [&](std::string_view keyword) {
        return keyword.size() == word.size() && strncasecmp(keyword.data(), word.data(), word.size()) == 0;
    });
}

// Whether the word is the keyword but for one character that is wrong, missing, or one too many.
bool is_near(std::string_view word, std::string_view keyword) {
    const auto [a, b] = std::ranges::mismatch(word, keyword);
    const std::string_view rest(a, word.end()), wanted(b, keyword.end());
    const auto without_first = [](std::string_view text) { return text.substr(std::min<std::size_t>(1, text.size())); };
    return without_first(rest) == wanted || rest == without_first(wanted) ||
           without_first(rest) == without_first(wanted);
}

[[noreturn]] void refuse(std::size_t number, const std::string &what) {
    throw Failure("the logon string: item " + std::to_string(number) + ' ' + what, kExitUsage);
}

// The first item may be a principal, whatever is in it.
void refuse_keyword(std::size_t number, std::string_view word) {
    for (const std::string_view keyword : kKeywords)
        if (is_near(word, keyword))
            refuse(number, "is unknown; \"" + std::string(keyword) + "=\" is meant?");
    if (number > 1)
        refuse(number,
               "is not KEYWORD=VALUE of authcid, password, realm, user, profile, ... (a value with blanks stands in "
               "quotation marks)");
}

// Takes a value with its quotation marks; false when they are not closed.
bool take_quoted(std::string_view &text) {
    const char mark = text.front();
    for (std::size_t at = 1; (at = text.find(mark, at)) != std::string_view::npos; at += 2)
        if (at + 1 == text.size() || text[at + 1] != mark) { // a doubled one stands for itself
            text.remove_prefix(at + 1);
            return true;
        }
    return false;
}

// Takes a value, and what stands before the next item.
void take_value(std::string_view &text, std::size_t number) {
    text.remove_prefix(std::min(text.find_first_not_of(kBlanks), text.size()));
    if (text.empty())
        refuse(number, "has no value");
    if (text.front() != '\'' && text.front() != '"')
        text.remove_prefix(std::min(text.find_first_of(" \t\n\v\f\r,"), text.size()));
    else if (!take_quoted(text))
        refuse(number, "has a quotation mark that is not closed");
    text.remove_prefix(std::min(text.find_first_not_of(kBlanks), text.size()));
}

} // namespace

void check_logon_string(std::string_view text) {
    if (text.starts_with(",,"))
        return; // a leading field, which only programs write
    for (std::size_t number = 1; !text.empty() && text.front() != ','; ++number) {
        const std::size_t end = text.find_first_of("= \t\n\v\f\r,'\"");
        const std::string_view word = text.substr(0, end);
        const bool has_value = end != std::string_view::npos && text[end] == '=';
        if (has_value && is_keyword(word))
            text.remove_prefix(end + 1);
        else if (number > 1 || has_value)
            refuse_keyword(number, word);
        take_value(text, number);
    }
}

} // namespace tools
