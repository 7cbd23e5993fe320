// codec_bench's messages of 1, 4 and 16 entries through OpenSSL's ASN.1 templates.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "bench/cases.h"
#include "bench/peers/asn1_templates.h"

namespace {

template_message message_of(int entries) {
    constexpr unsigned char kOid[9] = {0x2B, 6, 1, 4, 1, 0x81, 0xFD, 0x59, 1};
    template_message message{};
    message.entries = entries;
    for (int i = 0; i < entries; ++i) {
        std::memcpy(message.entry[i].oid, kOid, sizeof kOid);
        message.entry[i].state = message.entry[i].reason = 1;
        std::memset(message.entry[i].token, 't', sizeof message.entry[i].token);
    }
    message.state = 2;
    std::memcpy(message.identity, "identity", sizeof message.identity);
    return message;
}

void expect(bool condition) {
    if (condition)
        return;
    std::fprintf(stderr, "templates failed\n");
    std::abort();
}

} // namespace

int main(int argc, char **argv) {
    for (const int entries : {1, 4, 16}) {
        const std::string size = "/entries:" + std::to_string(entries);
        bench::add_case("templates/encode" + size, [=](const bench::Repeat &repeat) {
            const template_message message = message_of(entries);
            repeat(
                [&] {
                    unsigned char *bytes = nullptr;
                    expect(templates_encode(&message, &bytes) != 0);
                    templates_free(bytes);
                },
                0);
        });
        bench::add_case("templates/decode" + size, [=](const bench::Repeat &repeat) {
            template_message message = message_of(entries);
            unsigned char *bytes = nullptr;
            const std::size_t length = templates_encode(&message, &bytes);
            repeat([&] { expect(templates_decode(&message, bytes, length) == 1); }, 0);
            templates_free(bytes);
        });
    }
    return bench::run_cases(argc, argv);
}
