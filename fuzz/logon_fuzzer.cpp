// Logon strings and principals: the first byte is the flags, the second says which outputs are wanted and the third
// which allocation fails first; the text follows.
#include <climits>
#include <cstring>
#include <string>

#include "fuzz/input.h"
#include "gssp2qxnego/gssp2qxnegoint.h"
#include "qxat/qxatint.h"
#include "tests/failing_heap.h"

using fuzz::require;

namespace {

void parse_logon(const std::string &text, qxat_flags_t flags, unsigned wanted) {
    char unset = 0;
    char *out[9];
    char **asked[9];
    for (unsigned i = 0; i < 9; ++i) {
        out[i] = &unset;
        asked[i] = (wanted >> (i % 8) & 1) != 0 ? nullptr : &out[i];
    }
    OM_uint32 minor = 0;
    const OM_uint32 major = qxat_parse_logon(&minor, text.c_str(), asked[0], asked[1], asked[2], asked[3], asked[4],
                                             asked[5], asked[6], asked[7], asked[8], flags);
    for (unsigned i = 0; i < 9; ++i) {
        require((asked[i] == nullptr) == (out[i] == &unset), "what is wanted is set, and nothing else");
        if (asked[i] == nullptr)
            continue;
        require(GSS_ERROR(major) == 0 || out[i] == nullptr, "a failure leaves no output");
        require(out[i] == nullptr || std::strlen(out[i]) <= text.size(), "no value is longer than the text");
        std::free(out[i]);
    }
    require((GSS_ERROR(major) == 0) == (minor == GSSP_E_SUCCESS), "the minor status fits the major one");
}

void read_values(const std::string &text) {
    std::string value(text.size() + 1, 0);
    for (const char *at = text.c_str(); at != nullptr && *at != 0 && *at != ',';) {
        const char *next = GetString(at, value.data());
        require(next == nullptr || (next > at && next <= text.c_str() + text.size()), "every value is a step forward");
        at = next;
    }
}

void parse_principals(const std::string &text, qxat_flags_t flags) {
    const qxat_logon_t logon = qxat_parse(text.c_str(), flags);
    for (int i = -1; i <= qxat_get_count(logon); ++i)
        for (const auto part : {qxat_get_user, qxat_get_realm, qxat_get_password}) {
            const qxat_buffer_t found = part(logon, i);
            require(found == nullptr || found->kb_length == std::strlen(found->kb_value), "a part's length is right");
            if (found != nullptr)
                qxat_unescape(found);
        }
    qxat_free(logon);
}

void find_principal(const std::string &text) {
    char *principal = nullptr;
    const OM_uint32 status = QXNEGO_INT_get_principal(text.c_str(), &principal);
    require((status == QXNEGO_E_SUCCESSFUL) == (principal != nullptr), "a principal or a failure");
    std::free(principal);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    fuzz::Input input(data, size);
    const auto flags = static_cast<qxat_flags_t>(input.below(8));
    const unsigned wanted = input.byte(), failing = input.byte();
    const std::string text(input.rest());
    const failing_heap::From heap(failing != 0 ? static_cast<int>(failing) - 1 : INT_MAX);
    parse_logon(text, flags, wanted);
    read_values(text);
    parse_principals(text, flags);
    find_principal(text);
    qxat_validate_kerberos_logdata(nullptr, text.c_str());
    const char *half = text.c_str() + text.size() / 2;
    require(qxat_stricmp(text.c_str(), half) == -qxat_stricmp(half, text.c_str()), "an order has two directions");
    qxat_strnicmp(text.c_str(), half, wanted);
    return 0;
}
