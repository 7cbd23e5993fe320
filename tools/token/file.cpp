// Which form a file has is told by its characters.
#include "tools/token/file.h"

#include <algorithm>

#include <openssl/evp.h>

#include "tools/failure.h"
#include "tools/files.h"
#include "tools/show/log.h"

namespace tools {

namespace {

constexpr std::string_view kBlanks = " \t\r\n";
constexpr std::size_t kLargestText = 1U << 24;
constexpr std::string_view kHexDigits = "0123456789abcdefABCDEF";

bool is_text(ByteView content) {
    return std::all_of(content.begin(), content.end(), [](unsigned char c) {
        return (c >= 0x20 && c < 0x7F) || kBlanks.find(char(c)) != kBlanks.npos;
    });
}

Bytes from_base64(const std::string &text, const std::string &path) {
    const std::size_t padding = text.size() - std::min(text.size(), text.find_last_not_of('=') + 1);
    Bytes out(text.size() / 4 * 3);
    const bool is_whole = text.size() % 4 == 0 && padding <= 2 && text.find('=') >= text.size() - padding;
    const int length = !is_whole || text.size() > kLargestText
                           ? -1
                           : EVP_DecodeBlock(out.data(), reinterpret_cast<const unsigned char *>(text.data()),
                                             static_cast<int>(text.size()));
    if (length < 0)
        throw Failure(shown_name(path) + ": is neither a token nor hexadecimal or base64 text", kExitUsage);
    out.resize(static_cast<std::size_t>(length) - padding); // which it gives as zeros
    return out;
}

// What follows the scheme of a line of HTTP, or all of it.
std::string_view credentials_of(std::string_view text) {
    for (const std::string_view scheme : {"Negotiate ", "NTLM ", "Kerberos "})
        if (const std::size_t at = text.find(scheme); at != text.npos)
            return text.substr(at + scheme.size());
    return text;
}

} // namespace

Bytes read_dumped_file(const std::string &path) {
    Bytes content = read_file(path);
    if (!is_text(content) || SavedLog::read(content))
        return content;
    const std::string text = without(credentials_of(as_text(content)), kBlanks);
    const std::string digits = without(text.starts_with("0x") ? text.substr(2) : text, ":-,");
    if (digits.find_first_not_of(kHexDigits) != digits.npos)
        return from_base64(text, path);
    const std::optional<Bytes> bytes = from_hex(digits);
    if (!bytes)
        throw Failure(shown_name(path) + ": has an odd number of hexadecimal digits", kExitUsage);
    return *bytes;
}

} // namespace tools
