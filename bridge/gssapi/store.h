// What a program gives beside the name: the credential store (gss_acquire_cred_from), or a password; and the logon
// string that comes of it.
#ifndef BRIDGE_GSSAPI_STORE_H
#define BRIDGE_GSSAPI_STORE_H

#include <string>
#include <string_view>

#include "bridge/gssapi/name.h"

namespace bridge {

// A text that is wiped when it goes. It has as much room as it was made with, so that no copy is left behind.
class Secret {
  public:
    explicit Secret(std::size_t room) { text_.reserve(room); }
    Secret(Secret &&other) noexcept = default;
    Secret &operator=(Secret &&other) noexcept = default;
    ~Secret();

    // Nothing is appended beyond the room.
    void append(std::string_view more);
    std::string_view text() const { return text_; }
    const char *c_str() const { return text_.c_str(); }

  private:
    std::string text_;
};

// Views of the program's own texts, and null ones for those that are not given.
struct Store {
    std::string_view config, logon_file, confirmation, password;
    std::string_view keytab, client_keytab, ccache;
};

// Throws Failure when a key comes twice or has no value.
Store read_store(gss_const_key_value_set_t pStore);

// "authcid=... password=..." of those that are given, each in quotation marks. Throws Failure for a NUL inside.
Secret logon_string(const Name *pIdentity, std::string_view password);

// The first line of the file, at most 64 KiB. Throws Failure.
Secret logon_string_in(std::string_view file);

// Who logs on with it; empty: it does not say. Throws Failure for a text that is no logon string.
std::string identity_in(const Secret &logon);

} // namespace bridge

#endif
