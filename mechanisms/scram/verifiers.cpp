// Reading the verifiers file, and verifiers for users that do not exist. A line with anything beyond the four fields
// is refused: it could be the salted password, which is as good as the password.
#include "mechanisms/scram/verifiers.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <fstream>
#include <memory>
#include <new>
#include <optional>

#include <gsasl.h>

namespace scram {
namespace {

// The mechanisms that a line may name, with the length of their keys.
struct Family {
    std::string_view mechanism;
    std::size_t key_length;
};
constexpr Family kFamily[] = {{"SCRAM-SHA-1", GSASL_HASH_SHA1_SIZE}, {"SCRAM-SHA-256", GSASL_HASH_SHA256_SIZE}};

// A decoy's salt is cut from a SHA-256 key, so a longer real one would tell the two apart.
constexpr std::size_t kMaxSalt = GSASL_HASH_SHA256_SIZE;

struct Line {
    std::string_view user;
    std::string_view mechanism;
    Verifier verifier;
};

std::string_view trimmed(std::string_view text) {
    constexpr std::string_view kBlank = " \t\r";
    const std::size_t first = text.find_first_not_of(kBlank);
    if (first == std::string_view::npos)
        return {};
    return text.substr(first, text.find_last_not_of(kBlank) - first + 1);
}

// Takes the text up to the separator off the front, or none when there is no separator.
std::optional<std::string_view> cut(std::string_view &rest, std::string_view separator) {
    const std::size_t end = rest.find(separator);
    if (end == std::string_view::npos)
        return std::nullopt;
    const std::string_view front = rest.substr(0, end);
    rest.remove_prefix(end + separator.size());
    return front;
}

// Number of bytes that the base64 text stands for; 0 when it is none.
std::size_t decoded_length(std::string_view base64) {
    char *bytes = nullptr;
    std::size_t length = 0;
    const int rc = gsasl_base64_from(base64.data(), base64.size(), &bytes, &length);
    if (rc == GSASL_MALLOC_ERROR)
        throw std::bad_alloc();
    gsasl_free(bytes);
    return rc == GSASL_OK ? length : 0;
}

std::string to_base64(const char *bytes, std::size_t length) {
    char *text = nullptr;
    if (gsasl_base64_to(bytes, length, &text, nullptr) != GSASL_OK)
        throw std::bad_alloc();
    const std::unique_ptr<char, decltype(&gsasl_free)> owner(text, gsasl_free);
    return text;
}

// Splits a line; what is wrong with its form, or empty.
std::string_view split(std::string_view text, Line &line) {
    const auto user = cut(text, ":{");
    const auto mechanism = cut(text, "}");
    const auto iterations = cut(text, ",");
    const auto salt = cut(text, ",");
    const auto stored_key = cut(text, ",");
    if (!user || user->empty() || !mechanism || !iterations || !salt || !stored_key)
        return "expected USER:{MECHANISM}ITERATIONS,SALT,STOREDKEY,SERVERKEY";
    if (text.find(',') != std::string_view::npos)
        return "more than four fields; only ITERATIONS,SALT,STOREDKEY,SERVERKEY belong here";
    line.user = *user;
    line.mechanism = *mechanism;
    line.verifier = {std::string(*iterations), std::string(*salt), std::string(*stored_key), std::string(text),
                     decoded_length(*salt)};
    return {};
}

// What is wrong with the line's values, or empty.
std::string check(const Line &line) {
    const auto *const family = std::ranges::find(kFamily, line.mechanism, &Family::mechanism);
    if (family == std::end(kFamily))
        return "unknown mechanism " + std::string(line.mechanism);
    if (!valid_iterations(line.verifier.iterations))
        return "ITERATIONS must be a number from 4096 to 1000000";
    if (line.verifier.salt_length == 0 || line.verifier.salt_length > kMaxSalt)
        return "SALT must be 1 to 32 bytes in base64";
    const std::string bytes = std::to_string(family->key_length) + " bytes in base64";
    if (decoded_length(line.verifier.stored_key) != family->key_length)
        return "STOREDKEY must be " + bytes;
    if (decoded_length(line.verifier.server_key) != family->key_length)
        return "SERVERKEY must be " + bytes;
    return {};
}

} // namespace

bool valid_iterations(std::string_view text) {
    unsigned value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    return error == std::errc() && end == text.data() + text.size() && value >= kMinIterations &&
           value <= kMaxIterations;
}

std::string Verifiers::add(std::string_view text, std::string_view mechanism) {
    Line line;
    if (const std::string_view wrong = split(text, line); !wrong.empty())
        return std::string(wrong);
    if (std::string wrong = check(line); !wrong.empty())
        return wrong;
    if (line.mechanism != mechanism)
        return {};
    const auto [place, added] = users_.try_emplace(std::string(line.user), std::move(line.verifier));
    if (!added)
        return "second line for user " + place->first + " and mechanism " + std::string(mechanism);
    models_.push_back(&place->second);
    return {};
}

std::string Verifiers::read(const std::string &file, std::string_view mechanism) {
    errno = 0;
    std::ifstream in(file);
    std::string line;
    for (std::size_t number = 1; std::getline(in, line); ++number) {
        const std::string_view text = trimmed(line);
        if (text.empty() || text.front() == '#')
            continue;
        if (const std::string wrong = add(text, mechanism); !wrong.empty())
            return file + ":" + std::to_string(number) + ": " + wrong;
    }
    if (!in.eof())
        return file + ": " + std::strerror(errno);
    if (models_.empty())
        return file + ": no verifier for mechanism " + std::string(mechanism);
    char random[GSASL_HASH_SHA256_SIZE];
    if (gsasl_random(random, sizeof random) != GSASL_OK)
        return file + ": no random bytes to be had";
    secret_ = to_base64(random, sizeof random);
    return {};
}

int Verifiers::find(std::string_view user, Verifier &verifier) const {
    if (const int rc = decoy(user, verifier); rc != GSASL_OK)
        return rc;
    if (const auto found = users_.find(user); found != users_.end())
        verifier = found->second;
    return GSASL_OK;
}

// One round of PBKDF2 is HMAC(secret, user); the keys that SCRAM derives from it serve as independent random values.
int Verifiers::decoy(std::string_view user, Verifier &verifier) const {
    char salted[GSASL_HASH_MAX_SIZE];
    char client_key[GSASL_HASH_MAX_SIZE];
    char server_key[GSASL_HASH_MAX_SIZE];
    char stored_key[GSASL_HASH_MAX_SIZE];
    const int rc = gsasl_scram_secrets_from_password(GSASL_HASH_SHA256, secret_.c_str(), 1, user.data(), user.size(),
                                                     salted, client_key, server_key, stored_key);
    if (rc != GSASL_OK)
        return rc;
    std::size_t pick = 0;
    std::memcpy(&pick, client_key, sizeof pick);
    const Verifier &model = *models_[pick % models_.size()];
    const std::size_t key_length = decoded_length(model.stored_key);
    verifier = {model.iterations, to_base64(server_key, model.salt_length), to_base64(stored_key, key_length),
                to_base64(salted, key_length), model.salt_length};
    return GSASL_OK;
}

} // namespace scram
