// NTLM messages and NTLM users.
#include "mechanisms/hostgss/ntlm.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <optional>
#include <utility>

#include "mechanisms/hostgss/status.h"

namespace hostgss {

namespace {

// ---- Messages ------------------------------------------------------------------------------------------------------

constexpr std::size_t kMaxLength = 0xFFFF;

// Where the length of a field stands, and what it may be. The field's offset stands 4 bytes behind its length.
struct Field {
    std::size_t at;
    std::size_t least = 0;
    std::size_t most = kMaxLength;
};

// The fields of a message, by its type.
constexpr Field kNegotiateFields[] = {{16}, {24}};    // domain, workstation
constexpr Field kChallengeFields[] = {{12, 1}, {40}}; // target name, target information
constexpr Field kAuthenticateFields[] = {
    {12}, {20, 44}, {28}, {36}, {44}, {52, 16, 16}, // LM and NT responses, domain, user, workstation, session key
};

struct Layout {
    const Field *fields;
    std::size_t count;
    std::size_t header; // its length
};
constexpr Layout kLayouts[] = {{kNegotiateFields, 2, 32}, {kChallengeFields, 2, 48}, {kAuthenticateFields, 6, 64}};

// A little-endian number of so many bytes, all inside.
std::size_t number(Bytes message, std::size_t at, std::size_t bytes) {
    std::size_t value = 0;
    for (std::size_t i = bytes; i != 0; --i)
        value = value << 8 | static_cast<unsigned char>(message[at + i - 1]);
    return value;
}

bool fits(Bytes message, const Layout &layout, const Field &field) {
    const std::size_t length = number(message, field.at, 2), offset = number(message, field.at + 4, 4);
    const bool inside = offset >= layout.header && offset <= message.size() && length <= message.size() - offset;
    return length >= field.least && length <= field.most && (length == 0 || inside);
}

// ---- Users ---------------------------------------------------------------------------------------------------------

struct Account {
    Bytes domain; // empty: none, which stands for any
    Bytes user;
};

constexpr Status kUncertain =
    refusal(GSS_S_UNAUTHORIZED, "It is not certain which account of the server the NTLM user name stands for.");

bool is_ascii(Bytes text) {
    return std::ranges::all_of(text, [](char c) { return (c & 0x80) == 0; });
}

char lower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c;
}

char upper(char c) {
    return c >= 'a' && c <= 'z' ? static_cast<char>(c - ('a' - 'A')) : c;
}

// Whether the host's library could take one name for the other.
bool could_equal(Bytes one, Bytes other) {
    return !is_ascii(one) || !is_ascii(other) || std::ranges::equal(one, other, {}, lower, lower);
}

bool could_mean(const Account &given, const Account &account) {
    return could_equal(given.user, account.user) &&
           (given.domain.empty() || account.domain.empty() || could_equal(given.domain, account.domain));
}

Account split(Bytes text) {
    const std::size_t backslash = text.find('\\');
    return backslash == Bytes::npos ? Account{{}, text}
                                    : Account{text.substr(0, backslash), text.substr(backslash + 1)};
}

// Takes the text up to a colon off the front; nothing when there is none.
std::optional<Bytes> cut(Bytes &rest) {
    const std::size_t colon = rest.find(':');
    if (colon == Bytes::npos)
        return std::nullopt;
    return std::exchange(rest, rest.substr(colon + 1)).substr(0, colon);
}

// The account of a line "DOMAIN:USER:PASSWORD" or, as smbpasswd has it, "[DOMAIN\]USER:UID:LMHASH:NTHASH:...".
std::optional<Account> account_of(Bytes line) {
    if (line.starts_with('#'))
        return std::nullopt;
    const auto first = cut(line), second = cut(line), third = cut(line), fourth = cut(line);
    if (!second || (third && !fourth))
        return std::nullopt;
    return third ? split(*first) : Account{*first, *second};
}

Status write(const Account &account, Block &name) {
    const bool written =
        (account.domain.empty() || (name.append(account.domain) && name.append("\\"))) && name.append(account.user);
    return written ? Status{} : kOutOfMemory;
}

struct Close {
    void operator()(std::FILE *file) const { std::fclose(file); }
};

// Leaves the name empty when no line could be meant.
Status look_up(Bytes shown, std::FILE *file, Block &name) {
    // A backslash may be a part of the user's name, too.
    const Account whole{{}, shown}, parts = split(shown);
    char line[1024]; // the host's library reads as much at once, and takes the rest for another line
    while (std::fgets(line, sizeof line, file) != nullptr) {
        const auto account = account_of(line);
        if (!account || (!could_mean(whole, *account) && !could_mean(parts, *account)))
            continue;
        Block found;
        if (const Status status = write(*account, found); status.failed())
            return status;
        if (!is_ascii(found.view()) || (name.length() != 0 && name.view() != found.view()))
            return kUncertain;
        if (name.length() == 0 && !name.append(found.view()))
            return kOutOfMemory;
    }
    return std::ferror(file) != 0 ? kUncertain : Status{};
}

// A domain's other names (DNS) and a user's (an address) would be further spellings of the same account.
Status fold(Bytes shown, Block &name) {
    const Account account = split(shown);
    if (account.domain.empty() || account.domain.find('.') != Bytes::npos || account.user.empty() ||
        account.user.find_first_of("\\@") != Bytes::npos)
        return kUncertain;
    for (std::size_t i = 0; i != shown.size(); ++i) {
        const char letter = i < account.domain.size() ? upper(shown[i]) : lower(shown[i]);
        if (!name.append({&letter, 1}))
            return kOutOfMemory;
    }
    return {};
}

} // namespace

Status check_ntlm_message(Bytes token, NtlmMessage expected) {
    const auto type = static_cast<std::size_t>(expected);
    const Layout &layout = kLayouts[type - 1];
    if (token.size() < layout.header || !token.starts_with(kNtlmSignature) || number(token, 8, 4) != type)
        return refusal(GSS_S_DEFECTIVE_TOKEN, "The peer's token is not the NTLM message that is due.");
    for (std::size_t i = 0; i != layout.count; ++i)
        if (!fits(token, layout, layout.fields[i]))
            return refusal(GSS_S_DEFECTIVE_TOKEN, "A field of the peer's NTLM message is missing, lies outside of it "
                                                  "or is not NTLMv2's.");
    return {};
}

const char *ntlm_user_file() {
    return std::getenv("NTLM_USER_FILE");
}

Status canonical_ntlm_name(Bytes shown, const char *user_file, Block &name) {
    if (!is_ascii(shown))
        return kUncertain;
    const std::unique_ptr<std::FILE, Close> file(user_file == nullptr ? nullptr : std::fopen(user_file, "r"));
    if (file == nullptr && user_file != nullptr && errno != ENOENT && errno != ENOTDIR && errno != EACCES)
        return kUncertain;
    const Status status = file == nullptr ? Status{} : look_up(shown, file.get(), name);
    return status.failed() || name.length() != 0 ? status : fold(shown, name);
}

} // namespace hostgss
