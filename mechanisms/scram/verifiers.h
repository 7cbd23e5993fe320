// The server's verifiers: what it keeps of each user's password (RFC 5802 section 3), read from a file once. Who asks
// for a user that does not exist gets a verifier too, so that a stranger learns nothing about which users exist.
#ifndef SCRAM_VERIFIERS_H
#define SCRAM_VERIFIERS_H

#include <cstddef>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace scram {

// Bounds of the iteration count. Fewer make a stolen verifier, or a proof given to a false server, cheap to search
// (RFC 7677 section 4); with more a peer could keep the client busy for long.
inline constexpr unsigned kMinIterations = 4096;
inline constexpr unsigned kMaxIterations = 1000000;

// The text is a number within these bounds.
bool valid_iterations(std::string_view text);

// Texts as GNU SASL takes them: a decimal number, and base64.
struct Verifier {
    std::string iterations;
    std::string salt;
    std::string stored_key;
    std::string server_key;
    std::size_t salt_length = 0; // in bytes
};

class Verifiers {
  public:
    // Reads the lines USER:{MECHANISM}ITERATIONS,SALT,STOREDKEY,SERVERKEY of the file; blank ones and those that begin
    // with # are passed over. Every line is checked, those of the named mechanism are kept. Returns what is wrong, as
    // "FILE:LINE: text" or "FILE: text"; empty when nothing is. GNU SASL must be initialised.
    std::string read(const std::string &file, std::string_view mechanism);

    // The user's verifier; for an unknown user one that no password fits, the same at every call, with the salt length
    // and iteration count of some real one. Takes the same steps in both cases. Returns a GNU SASL code.
    int find(std::string_view user, Verifier &verifier) const;

  private:
    std::string add(std::string_view text, std::string_view mechanism);
    int decoy(std::string_view user, Verifier &verifier) const;

    std::map<std::string, Verifier, std::less<>> users_;
    std::vector<const Verifier *> models_; // the same verifiers, by number
    std::string secret_;                   // the decoys' key, drawn by read()
};

} // namespace scram

#endif
