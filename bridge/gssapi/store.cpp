#include "bridge/gssapi/store.h"
#include "common/codes.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <span>

#include <fcntl.h>
#include <unistd.h>

#include "bridge/gssapi/qxnego_gssapi.h"
#include "common/codes.h"
#include "common/heap.h"
#include "common/text.h"
#include "qxat/qxatldapauthorize.h"

namespace bridge {

namespace {

constexpr std::size_t kMaxLogon = 65536;

struct Key {
    std::string_view name;
    std::string_view Store::*value;
};
constexpr Key kKeys[] = {
    {QXNEGO_GSS_CONFIG, &Store::config},
    {QXNEGO_GSS_LOGON_FILE, &Store::logon_file},
    {QXNEGO_GSS_CONFIRMATION, &Store::confirmation},
    {"password", &Store::password},
    {"keytab", &Store::keytab},
    {"client_keytab", &Store::client_keytab},
    {"ccache", &Store::ccache},
};

class File {
  public:
    explicit File(const std::string &path) : descriptor_(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY)) {}
    File(const File &) = delete;
    File &operator=(const File &) = delete;
    ~File() {
        if (descriptor_ >= 0)
            close(descriptor_);
    }
    int get() const { return descriptor_; }

  private:
    int descriptor_;
};

[[noreturn]] void refuse_file(std::string_view file, const char *why) {
    refuse(GSS_S_NO_CRED, "the logon string in " + common::quoted(file) + ": " + why);
}

void append_item(Secret &logon, std::string_view keyword, std::string_view value) {
    if (value.find('\0') != std::string_view::npos)
        refuse(GSS_S_FAILURE, "the name or the password has a NUL inside");
    logon.append(logon.text().empty() ? "" : " ");
    logon.append(keyword);
    logon.append("\"");
    for (const char &c : value) // a quotation mark inside is doubled
        logon.append({&c, 1}), logon.append(c == '"' ? "\"" : "");
    logon.append("\"");
}

} // namespace

Secret::~Secret() {
    explicit_bzero(text_.data(), text_.capacity());
}

void Secret::append(std::string_view more) {
    text_ += more.substr(0, text_.capacity() - text_.size());
}

Store read_store(gss_const_key_value_set_t pStore) {
    Store store;
    if (pStore == GSS_C_NO_CRED_STORE)
        return store;
    for (const gss_key_value_element_desc &element : std::span(pStore->elements, pStore->count)) {
        const auto key =
            std::ranges::find(kKeys, std::string_view(element.key == nullptr ? "" : element.key), &Key::name);
        if (key == std::end(kKeys))
            continue;
        if (element.value == nullptr)
            refuse(GSS_S_CALL_INACCESSIBLE_READ | GSS_S_FAILURE, "a key of the store has no value");
        if ((store.*key->value).data() != nullptr)
            refuse(GSS_S_DUPLICATE_ELEMENT, "a key of the store comes twice");
        store.*key->value = element.value;
    }
    return store;
}

Secret logon_string(const Name *pIdentity, std::string_view password) {
    const std::string identity = pIdentity == nullptr ? "" : pIdentity->identity();
    Secret logon(2 * (identity.size() + password.size()) + 32);
    if (!identity.empty())
        append_item(logon, "authcid=", identity);
    if (password.data() != nullptr)
        append_item(logon, "password=", password);
    return logon;
}

Secret logon_string_in(std::string_view file) {
    const File input{std::string(file)};
    if (input.get() < 0)
        refuse_file(file, std::strerror(errno));
    Secret logon(kMaxLogon);
    char octet = 0;
    ssize_t got = 0;
    while ((got = read(input.get(), &octet, 1)) == 1 && octet != '\n') {
        if (logon.text().size() == kMaxLogon)
            refuse_file(file, "it is too long");
        logon.append({&octet, 1});
    }
    if (got < 0)
        refuse_file(file, std::strerror(errno));
    if (logon.text().empty() || logon.text().find('\0') != std::string_view::npos)
        refuse_file(file, "there is none");
    return logon;
}

std::string identity_in(const Secret &logon) {
    OM_uint32 minor = 0;
    char *identity = nullptr;
    const OM_uint32 major = qxat_parse_logon(&minor, logon.c_str(), nullptr, &identity, nullptr, nullptr, nullptr,
                                             nullptr, nullptr, nullptr, nullptr, QXAT_FLAG_UNESCAPE_ALL);
    const common::Heap<char> owner(identity);
    if (common::failed(major))
        throw Failure(QXGSS_SESSION_FAILURE_USAGE, "the logon string: " + common::minor_text(minor), GSS_S_BAD_NAME,
                      minor);
    return identity == nullptr ? "" : identity;
}

} // namespace bridge
