// Credentials: what a program asks for is kept, and each negotiation acquires from every mechanism what it has for it.
#ifndef BRIDGE_GSSAPI_CREDENTIAL_H
#define BRIDGE_GSSAPI_CREDENTIAL_H

#include <chrono>
#include <optional>

#include "bridge/gssapi/configuration.h"
#include "bridge/gssapi/name.h"

namespace bridge {

// A credential of a mechanism, released with the mechanism's own operation.
class Delegated {
  public:
    Delegated() = default;
    Delegated(const MechInfo_t &mechanism, qxgss_cred_id_t handle) : mechanism_(&mechanism), handle_(handle) {}
    Delegated(Delegated &&other) noexcept
        : mechanism_(other.mechanism_), handle_(std::exchange(other.handle_, nullptr)) {}
    Delegated &operator=(Delegated &&) = delete;
    ~Delegated();

    const MechInfo_t *mechanism() const { return mechanism_; }
    const qxgss_cred_id_t &handle() const { return handle_; }

  private:
    const MechInfo_t *mechanism_ = nullptr;
    qxgss_cred_id_t handle_ = nullptr;
};

// Only read once it is made: any number of negotiations may use it at a time.
struct Credential {
    gss_cred_usage_t usage = GSS_C_BOTH;
    std::optional<Name> name; // whose it is, if that is known
    common::Name initiator;   // that QXNEGO acquires with: the logon string, and where tickets are; null: with
    common::Name acceptor;    // what is there. Likewise the service, and where its keys are.
    OM_uint32 lifetime = GSS_C_INDEFINITE; // seconds, when it was made
    std::string confirmation;              // as the application wants it; may be empty

    Credential() = default;
    // With what the client has delegated to a server here, the server initiates as that client.
    explicit Credential(Delegated delegated);

    bool initiates() const { return usage != GSS_C_ACCEPT; }
    bool accepts() const { return usage != GSS_C_INITIATE; }
    OM_uint32 lifetime_left() const;

  private:
    Delegated delegated_;
    std::chrono::steady_clock::time_point made_ = std::chrono::steady_clock::now();
};

inline const Credential *credential_of(gss_cred_id_t handle) {
    return reinterpret_cast<const Credential *>(handle);
}
inline gss_cred_id_t handle_of(Credential *credential) {
    return reinterpret_cast<gss_cred_id_t>(credential);
}

} // namespace bridge

#endif
