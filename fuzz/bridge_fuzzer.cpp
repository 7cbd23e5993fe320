// The bridge to the host's GSS-API library: what it adds to tokens and takes off again, exported names, and whole
// establishments with someone in between, over a scripted mechanism.
#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "bridge/gssapi/entry_points.h"
#include "bridge/gssapi/framing.h"
#include "fuzz/input.h"
#include "session/failure.h"
#include "tests/negotiation_harness.h"

using fuzz::require;

namespace {

gss_buffer_desc view_of(std::string_view text) {
    return {text.size(), const_cast<char *>(text.data())};
}

std::string taken(gss_buffer_desc buffer) {
    const std::unique_ptr<void, decltype(&std::free)> owner(buffer.value, &std::free);
    return {static_cast<char *>(buffer.value), buffer.length};
}

// What is taken off is what would be added.
void unpack(std::string_view token) {
    try {
        require(bridge::framed(bridge::unframed(token)) == token, "a frame is the one that we make");
    } catch (const session::Failure &) {
    }
    std::string rest(token);
    require(bridge::take_offer(rest) ? bridge::with_offer(rest) == token : rest == token, "an offer is ours");
    for (const auto kind : {bridge::OwnToken::kConfirmation, bridge::OwnToken::kEnd})
        if (const auto contents = bridge::contents_of(kind, token))
            require(bridge::own_token(kind, *contents) == token, "a token of ours is as we make it");
}

void import_again(std::string_view exported) {
    OM_uint32 minor = 0;
    gss_name_t name = GSS_C_NO_NAME;
    gss_buffer_desc text = view_of(exported), again{};
    if (bridge_gss_import_name(&minor, &text, GSS_C_NT_EXPORT_NAME, &name) != GSS_S_COMPLETE)
        return;
    bridge_gss_export_name(&minor, name, &again);
    require(taken(again) == exported, "a name has one exported form");
    bridge_gss_release_name(&minor, &name);
}

struct End {
    explicit End(bool is_client) : is_client_(is_client) {}
    End(const End &) = delete;
    End &operator=(const End &) = delete;
    ~End() {
        OM_uint32 minor = 0;
        bridge_gss_delete_sec_context(&minor, &context_, nullptr);
    }

    std::string step(std::string_view token) {
        OM_uint32 minor = 0;
        gss_buffer_desc input = view_of(token), output{}, service = view_of("host@server");
        gss_name_t target = GSS_C_NO_NAME;
        bridge_gss_import_name(&minor, &service, GSS_C_NT_HOSTBASED_SERVICE, &target);
        const OM_uint32 major =
            is_client_ ? bridge_gss_init_sec_context(&minor, nullptr, &context_, target, nullptr, GSS_C_INTEG_FLAG, 0,
                                                     nullptr, &input, nullptr, &output, nullptr, nullptr)
                       : bridge_gss_accept_sec_context(&minor, &context_, nullptr, &input, nullptr, nullptr, nullptr,
                                                       &output, nullptr, nullptr, nullptr);
        bridge_gss_release_name(&minor, &target);
        require(!(is_over_ && GSS_ERROR(major) == 0), "what is over does not go on");
        is_over_ = is_over_ || major != GSS_S_CONTINUE_NEEDED;
        is_open_ = is_open_ || major == GSS_S_COMPLETE;
        return taken(output);
    }
    // A first call that fails leaves no context, and the next one would begin anew.
    bool is_over() const { return is_over_; }
    bool is_open() const { return is_open_; }

  private:
    const bool is_client_;
    bool is_over_ = false, is_open_ = false;
    gss_ctx_id_t context_ = GSS_C_NO_CONTEXT;
};

// The scripted MIC does not sign its second octet.
bool is_same(const std::string &sent, std::string received) {
    if (sent.starts_with('\x82') && sent.size() == received.size() && sent.size() > 3)
        received[3] = sent[3];
    return sent == received;
}

void converse(fuzz::Input &input) {
    scripted::reset();
    scripted::script().legs.fill(1 + static_cast<int>(input.below(4)));
    scripted::script().at('A', scripted::kServer).source = "anna";
    End client(true), server(false);
    std::vector<std::string> seen{client.step("")};
    bool is_changed = false;
    for (std::size_t number = 0; number != 12 && !seen.back().empty(); ++number) {
        std::string token = seen.back();
        switch (input.below(6)) {
        case 1:
            token[input.byte() % token.size()] = static_cast<char>(input.byte());
            break;
        case 2:
            token.resize(input.byte() % token.size());
            break;
        case 3:
            token = seen[input.below(seen.size())];
            break;
        case 4:
            token = bridge::framed(input.bytes(input.byte()));
            break;
        case 5:
            token = input.bytes(input.byte());
            break;
        default:
            break;
        }
        is_changed = is_changed || !is_same(seen.back(), token);
        End &reader = number % 2 == 0 ? server : client;
        seen.push_back(reader.is_over() ? "" : reader.step(token));
    }
    require(!(is_changed && client.is_open() && server.is_open()), "a confirmed negotiation is whole");
    require(is_changed || (client.is_open() && server.is_open()), "nobody in between, and it succeeds");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    static const bool is_configured = [] {
        OM_uint32 major = 0;
        return harness::configure(&major, harness::configuration({{'A', true, true, true, 10}})).empty();
    }();
    require(is_configured, "the mechanism is configured");
    fuzz::Input input(data, size);
    switch (input.below(3)) {
    case 0:
        unpack(input.rest());
        break;
    case 1:
        import_again(input.rest());
        break;
    default:
        converse(input);
    }
    return 0;
}
