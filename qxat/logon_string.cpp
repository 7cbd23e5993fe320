// The logon string parser: an optional principal and "KEYWORD=VALUE" items become separate texts.
//
// Any of them may be a password, so whatever was read is wiped, and nothing of a failed parse survives.
#include <array>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string_view>

#include "common/heap.h"
#include "qxat/qxatint.h"

namespace {

struct Keyword {
    std::string_view name;
    char **output;
    OM_uint32 repeated; // minor status of a second occurrence
};

struct FreeLogon {
    void operator()(qxat_logon_t logon) const { qxat_free(logon); }
};
using Logon = std::unique_ptr<qxat_logon_struct, FreeLogon>;

unsigned char byte(char c) {
    return static_cast<unsigned char>(c);
}

bool is_white(char c) {
    return byte(c) < 0x80 && std::isspace(byte(c)) != 0;
}

bool is_separator(char c) {
    return c != '\0' && byte(c) <= 0x20;
}

int lower(char c) {
    return std::tolower(byte(c));
}

int signed_lower(char c) {
    return static_cast<signed char>(lower(c));
}

// Up to the closing quote, which is consumed, or the end of the string; a doubled quote stands for one.
const char *read_quoted(const char *in, char *s) {
    const char quote = *in++;
    for (; *in != '\0'; ++in) {
        if (*in == quote && *++in != quote)
            break;
        *s++ = *in;
    }
    *s = '\0';
    return in;
}

const char *read_plain(const char *in, char *s) {
    while (*in != ',' && byte(*in) > 0x20)
        *s++ = *in++;
    *s = '\0';
    return in;
}

OM_uint32 copy_to(char **output, const char *text, std::size_t length, OM_uint32 failure) {
    *output = strndup(text, length);
    return *output != nullptr ? GSSP_E_SUCCESS : failure;
}

OM_uint32 copy_part(char **output, const qxat_buffer_desc &part) {
    return copy_to(output, part.kb_value, std::strlen(part.kb_value), QXAT_E_LOGON_PROPERTY);
}

OM_uint32 join(char **output, const qxat_buffer_desc &user, const qxat_buffer_desc &realm) {
    const std::size_t size = user.kb_length + realm.kb_length + 2;
    *output = static_cast<char *>(std::malloc(size));
    if (*output == nullptr)
        return QXAT_E_LOGON_PROPERTY;
    std::snprintf(*output, size, "%s@%s", user.kb_value, realm.kb_value);
    return GSSP_E_SUCCESS;
}

// The principal as the framework understands it: one logon item with a user.
OM_uint32 GetKrbStyleLogon(const char *principal, char **authcid, char **password) {
    const Logon logon(qxat_parse(principal, QXAT_FLAG_UNESCAPE_ALL));
    if (logon == nullptr || qxat_get_count(logon.get()) != 1)
        return QXAT_E_LOGON_PROPERTY;
    const qxat_buffer_desc *user = qxat_get_user(logon.get(), 0);
    if (user == nullptr)
        return QXAT_E_LOGON_PROPERTY;
    OM_uint32 minor = GSSP_E_SUCCESS;
    if (authcid != nullptr) {
        const qxat_buffer_desc *realm = qxat_get_realm(logon.get(), 0);
        minor = realm != nullptr ? join(authcid, *user, *realm) : copy_part(authcid, *user);
    }
    if (minor != GSSP_E_SUCCESS || password == nullptr)
        return minor;
    const qxat_buffer_desc *secret = qxat_get_password(logon.get(), 0);
    return secret != nullptr ? copy_part(password, *secret) : minor;
}

// IDENTITY "@@" PASSWORD, split at the last "@@"; the password is unescaped, the identity is not.
OM_uint32 qxat_parse_non_upn(std::string_view principal, char **authcid, char **password) {
    const std::size_t at = principal.rfind("@@");
    if (authcid == nullptr || password == nullptr || at == std::string_view::npos)
        return QXAT_E_LOGON_PROPERTY;
    const std::string_view secret = principal.substr(at + 2);
    if (secret.empty())
        return QXAT_E_LOGON_PROPERTY;
    qxat_buffer_desc unescaped{strndup(secret.data(), secret.size()), secret.size(), 0};
    if (unescaped.kb_value == nullptr)
        return QXAT_E_LOGON_PROPERTY;
    qxat_unescape(&unescaped);
    *password = unescaped.kb_value;
    if (*password == nullptr || at == 0)
        return QXAT_E_LOGON_PROPERTY;
    return copy_to(authcid, principal.data(), at, QXAT_E_LOGON_PROPERTY);
}

// Every step returns a minor status; success is the framework's.
class LogonParser {
  public:
    LogonParser(const char *input, char **upn, const std::array<Keyword, 8> &keywords, qxat_flags_t flags)
        : input_(input), upn_(upn), keywords_(keywords), flags_(flags),
          buffer_(input != nullptr ? std::strlen(input) + 1 : 1) {
        for_each_output([](char **output) { *output = nullptr; });
    }

    OM_uint32 parse() {
        if (input_ == nullptr)
            return GSSP_E_INVALID_ARGUMENT;
        if (value() == nullptr)
            return QXAT_E_CALLOC;
        if (std::strncmp(input_, ",,", 2) != 0)
            return items(input_);
        const char *next = read(input_ + 2); // the leading field is not returned
        if (next == nullptr || *next != ',')
            return QXAT_E_LOGON_SYNTAX;
        return items(next + 1);
    }

    void drop_outputs() {
        for_each_output([](char **output) {
            if (*output != nullptr)
                common::WipeAndFree()(*output);
            *output = nullptr;
        });
    }

  private:
    char *value() const { return buffer_.get(); } // the last one read

    template <typename F> void for_each_output(F apply) {
        if (upn_ != nullptr)
            apply(upn_);
        for (const Keyword &keyword : keywords_) {
            if (keyword.output != nullptr)
                apply(keyword.output);
        }
    }

    // GetString leaves the buffer alone when only white space is left: the value is then empty, not the one before.
    const char *read(const char *in) {
        *value() = '\0';
        return GetString(in, value());
    }

    // A comma where an item would begin ends the list.
    OM_uint32 items(const char *next) {
        for (bool first = true; next != nullptr && *next != '\0' && *next != ','; first = false) {
            const Keyword *keyword = keyword_at(next);
            if (keyword == nullptr && !first)
                return QXAT_E_LOGON_PROPERTY;
            next = read(keyword != nullptr ? next + keyword->name.size() : next);
            const OM_uint32 minor = keyword != nullptr ? store(*keyword) : principal();
            if (minor != GSSP_E_SUCCESS)
                return minor;
        }
        return GSSP_E_SUCCESS;
    }

    const Keyword *keyword_at(const char *item) const {
        for (const Keyword &keyword : keywords_) {
            const std::size_t size = keyword.name.size();
            if (qxat_strnicmp(item, keyword.name.data(), size) == 0 && item[size] != '\0')
                return &keyword;
        }
        return nullptr;
    }

    OM_uint32 copy_value(char **output) { return copy_to(output, value(), std::strlen(value()), QXAT_E_CALLOC); }

    OM_uint32 store(const Keyword &keyword) {
        if (keyword.output == nullptr)
            return GSSP_E_SUCCESS;
        return *keyword.output != nullptr ? keyword.repeated : copy_value(keyword.output);
    }

    OM_uint32 principal() {
        if (upn_ != nullptr) {
            const OM_uint32 minor = copy_value(upn_);
            if (minor != GSSP_E_SUCCESS)
                return minor;
        }
        char **authcid = keywords_[0].output;
        char **password = keywords_[1].output;
        if ((flags_ & QXAT_FLAG_UNESCAPE_ALL) == QXAT_FLAG_UNESCAPE_ALL)
            return GetKrbStyleLogon(value(), authcid, password);
        if ((flags_ & QXAT_FLAG_UNESCAPE_PASSWORD) != 0)
            return qxat_parse_non_upn(value(), authcid, password);
        return GSSP_E_SUCCESS;
    }

    const char *input_;
    char **upn_;
    const std::array<Keyword, 8> &keywords_; // authcid and password first
    qxat_flags_t flags_;
    common::SecretRoom<1024> buffer_; // as long as the whole string: for one value at a time
};

} // namespace

OM_uint32 qxat_parse_logon(OM_uint32 *pMinorStatus, const char *input, char **upn, char **authcid, char **password,
                           char **realm, char **authzid, char **mech, char **user, char **profile, char **encuserprops,
                           qxat_flags_t f) {
    const std::array<Keyword, 8> keywords{{{"authcid=", authcid, QXAT_E_LOGON_AUTHCIDS},
                                           {"password=", password, GSSP_E_SUCCESS},
                                           {"realm=", realm, GSSP_E_SUCCESS},
                                           {"authzid=", authzid, GSSP_E_SUCCESS},
                                           {"mech=", mech, GSSP_E_SUCCESS},
                                           {"user=", user, QXAT_E_LOGON_USERS},
                                           {"profile=", profile, QXAT_E_LOGON_PROFILES},
                                           {"userproperties=", encuserprops, GSSP_E_SUCCESS}}};
    LogonParser parser(input, upn, keywords, f);
    const OM_uint32 minor = parser.parse();
    if (minor != GSSP_E_SUCCESS)
        parser.drop_outputs();
    if (pMinorStatus != nullptr)
        *pMinorStatus = minor;
    return minor == GSSP_E_SUCCESS ? GSS_S_COMPLETE : GSS_S_FAILURE;
}

const char *GetString(const char *in, char *s) {
    while (is_white(*in))
        ++in;
    if (*in == '\0')
        return nullptr;
    in = *in == '\'' || *in == '"' ? read_quoted(in, s) : read_plain(in, s);
    while (is_separator(*in))
        ++in;
    return *in != '\0' ? in : nullptr;
}

int qxat_strnicmp(const char *s1, const char *s2, size_t n) {
    for (; n > 0; --n, ++s1, ++s2) {
        const int difference = lower(*s1) - lower(*s2);
        if (difference != 0 || *s1 == '\0')
            return difference;
    }
    return 0;
}

int qxat_stricmp(const char *s1, const char *s2) {
    while (*s1 != '\0' && lower(*s1) == lower(*s2)) {
        ++s1;
        ++s2;
    }
    const int a = signed_lower(*s1);
    const int b = signed_lower(*s2);
    return a == b ? 0 : a > b ? 1 : -1;
}
