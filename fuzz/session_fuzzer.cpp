// A whole conversation over the real mechanisms, with a hostile peer on either side of it or in between. Runs in the
// realm of tests/realm.sh.
#include <optional>
#include <string>
#include <vector>

#include "common/text.h"
#include "fuzz/configured.h"
#include "testkit/conversation.h"
#include "testkit/real_mechanisms.h"

using fuzz::require;
using testkit::SessionEnd;

namespace {

constexpr qxgss_session_options_desc kOptions = {
    sizeof kOptions, QXGSS_SESSION_MAX_MESSAGE, 16, 30'000, 0, 0, QXGSS_SESSION_UNPROTECTED, nullptr, nullptr, nullptr};
const testkit::RealMechanism *const kMechanisms[] = {&testkit::kScram, &testkit::kNtlm, &testkit::kKerberos};

// One mechanism at a time: configured anew when another one's turn comes.
void configure(const testkit::RealMechanism &mechanism) {
    static const testkit::RealMechanism *current = nullptr;
    static std::optional<fuzz::Configured> configured;
    if (current == &mechanism)
        return;
    configured.reset();
    configured.emplace(testkit::configuration_of({&mechanism, 1}));
    require(configured->major == GSS_S_COMPLETE, "the mechanism is configured");
    current = &mechanism;
}

// What becomes of a message on its way, as the input has it.
class Wire {
  public:
    explicit Wire(fuzz::Input &input) : input_(input) {}

    std::string carry(const std::string &sent) {
        seen_.push_back(sent);
        std::string message = sent;
        switch (input_.below(8)) {
        case 1:
            for (unsigned changes = 1 + input_.below(4); changes != 0 && !message.empty(); --changes)
                message[(input_.byte() << 8 | input_.byte()) % message.size()] = static_cast<char>(input_.byte());
            break;
        case 2:
            message.resize((input_.byte() << 8 | input_.byte()) % (message.size() + 1));
            break;
        case 3:
            message += input_.bytes(input_.byte());
            break;
        case 4:
            message = seen_[input_.below(seen_.size())];
            break;
        case 5:
            message = input_.bytes(input_.byte());
            break;
        default:
            break;
        }
        is_changed_ = is_changed_ || message != sent;
        return message;
    }
    bool is_changed() const { return is_changed_; }

  private:
    fuzz::Input &input_;
    std::vector<std::string> seen_;
    bool is_changed_ = false;
};

void check(const SessionEnd &end) {
    const qxgss_session_facts_desc facts = end.facts();
    const std::string line = facts.pszFailure;
    require((facts.State == QXGSS_SESSION_FAILED) == (facts.Failure != QXGSS_SESSION_NO_FAILURE),
            "a failure has a class");
    require(line == common::printable(line), "a failure's line is safe to show");
    qxgss_session_verdict_desc verdict{};
    for (OM_uint32 i = 0; i != facts.VerdictCount; ++i)
        require(qxgss_session_inquire_verdict(nullptr, end.handle, i, &verdict) == GSS_S_COMPLETE,
                "every verdict can be asked for");
    qxgss_buffer_desc properties{};
    qxgss_session_properties(nullptr, end.handle, &properties);
    gssp_release_buffer(nullptr, &properties);
}

// Texts in both directions: what is read is what was written, in that order.
void exchange_texts(SessionEnd &client, SessionEnd &server, Wire &wire) {
    for (const char *text : {"one", "two", "three"}) {
        const std::string there = server.unwrap(wire.carry(client.wrap(text)));
        require(there.empty() || there == text, "a text arrives as it was sent, or not at all");
        const std::string back = client.unwrap(wire.carry(server.wrap(text)));
        require(back.empty() || back == text, "and so does the answer");
    }
    server.unwrap(wire.carry(client.end()));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    fuzz::Input input(data, size);
    const unsigned which = input.below(2 * std::size(kMechanisms));
    const testkit::RealMechanism &mechanism = *kMechanisms[which / 2];
    const bool is_right = which % 2 == 0;
    configure(mechanism);
    Wire wire(input);
    SessionEnd client, server;
    client.initiate(is_right ? mechanism.logon : mechanism.logon + "x", &kOptions);
    server.accept(&kOptions);
    if (client.handle == nullptr)
        return 0;
    converse(client, server, [&](std::size_t, std::string &message) { message = wire.carry(message); });
    const bool is_open = server.is_open();
    require(!is_open || (is_right && server.user() == mechanism.user), "only he who is let in has proved it");
    require(!(is_open && client.is_open() && mechanism.has_mics && wire.is_changed()), "a confirmed offer is whole");
    if (is_open && client.is_open() && mechanism.has_mics)
        exchange_texts(client, server, wire);
    check(client);
    check(server);
    return 0;
}
