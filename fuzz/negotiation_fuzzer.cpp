// A whole conversation of both roles. The input picks a scenario, changes how its mechanisms behave, and decides for
// each call what becomes of the peer's token and which allocation fails.
#include <algorithm>
#include <climits>
#include <iterator>
#include <string>
#include <vector>

#include "fuzz/input.h"
#include "fuzz/token.h"
#include "gssp2qxnego/gssp2qxnegoutil/mechanisms.h"
#include "gssp2qxnego/gssp2qxnegoutil/trace.h"
#include "tests/failing_heap.h"
#include "tests/negotiation_harness.h"

using fuzz::Input;
using fuzz::require;
using harness::Output;
using harness::Peer;
using harness::Side;

namespace {

using Table = qxgss_ftn_table_desc;
using scripted::Behaviour;

constexpr int kTurns = 12;

// What a mechanism can do otherwise than the scenario says.
constexpr void (*kAlterations[])(Table &) = {
    [](Table &t) { t = {}; },
    [](Table &t) { t.ftn_gssp_init_sec_context = nullptr; },
    [](Table &t) { t.ftn_gssp_accept_sec_context = nullptr; },
    [](Table &t) { t.ftn_gssp_delete_sec_context = nullptr; },
    [](Table &t) { t.ftn_gssp_acquire_cred = nullptr; },
    [](Table &t) { t.ftn_gssp_inquire_cred = nullptr; },
    [](Table &t) { t.ftn_gssp_display_status = nullptr; },
    [](Table &t) { t.ftn_gssp_release_name = nullptr; },
    [](Table &t) { t.ftn_gssp_inquire_properties_for_user = nullptr; },
    [](Table &t) { t.ftn_gssp_unwrap = nullptr; },
};
constexpr const char *kTexts[] = {nullptr, "", "anna", "anna@realm@@secret", "onlyb", "\\@'\"", "a,b"};
constexpr std::string_view kProperties[] = {
    {},                                           // none
    {"\x0D\0\x08\0\1\0r\0", 8},                   // a role
    {"\x08\0\x10\0\2\0\1\1\0\0\0\0\0\0\0\0", 16}, // attributes
    {"x", 1},                                     // no record
};

template <typename T, std::size_t n> const T &choice(const T (&choices)[n], unsigned value) {
    return choices[value % n];
}

constexpr void (*kChanges[])(Behaviour &how, unsigned value) = {
    [](Behaviour &how, unsigned value) { how.failing_call = static_cast<int>(value % 4); },
    [](Behaviour &how, unsigned value) { how.error_token = value % 2 != 0; },
    [](Behaviour &how, unsigned value) { how.acquire_fails = value % 2 != 0; },
    [](Behaviour &how, unsigned value) { how.release_cred_fails = value % 2 != 0; },
    [](Behaviour &how, unsigned value) { how.delete_fails = value % 2 != 0; },
    [](Behaviour &how, unsigned value) { how.messages_fail = value % 2 != 0; },
    [](Behaviour &how, unsigned value) { how.supplementary = value & 0x1E; },
    [](Behaviour &how, unsigned value) { how.principal = static_cast<scripted::Principal>(value % 5); },
    [](Behaviour &how, unsigned value) { how.principal_text = choice(kTexts, value) ? choice(kTexts, value) : "anna"; },
    [](Behaviour &how, unsigned value) { how.text = choice(kTexts, value); },
    [](Behaviour &how, unsigned value) { how.source = choice(kTexts, value); },
    [](Behaviour &how, unsigned value) { how.delegates = value % 2 != 0; },
    [](Behaviour &how, unsigned value) { how.properties = choice(kProperties, value); },
    [](Behaviour &how, unsigned value) { how.alter = choice(kAlterations, value); },
};

void change_behaviour(Input &input) {
    const char letter = static_cast<char>('A' + input.below(scripted::kMechanisms));
    const Side side = input.below(2) != 0 ? scripted::kServer : scripted::kClient;
    const unsigned what = input.below(std::size(kChanges) + 1), value = input.byte();
    if (what == 0)
        scripted::script().legs[static_cast<std::size_t>(letter - 'A')] = 1 + static_cast<int>(value % 6);
    else
        kChanges[what - 1](scripted::script().at(letter, side), value);
}

// Whether every mechanism can release what it makes.
bool all_release() {
    for (const auto &sides : scripted::script().behaviour)
        for (const Behaviour &how : sides) {
            Table table = harness::registered("A").MechFtnTable;
            if (how.alter != nullptr)
                how.alter(table);
            if (table.ftn_gssp_delete_sec_context == nullptr || table.ftn_gssp_release_cred == nullptr)
                return false;
        }
    return true;
}

// Whether "onlya" and so on stand for another mechanism than that one.
bool forbids(const std::string &user, char letter) {
    return user.size() == 5 && user.starts_with("only") && user[4] >= 'a' && user[4] <= 'd' &&
           user[4] != letter - 'A' + 'a';
}

// Whether the server's policy and its rules for authorization let whom the negotiation is for use that mechanism. Of
// single sign-on only the rules can be asked: later tokens may name others than the one whom the policy was asked
// about.
bool is_allowed(const NegContext_desc &negotiation, char letter) {
    if (letter == 'B' && negotiation.UserNameBuf.length + negotiation.ProfileNameBuf.length != 0)
        return false;
    const bool has_user = negotiation.UserNameBuf.length != 0;
    return !forbids(support::text_of(has_user ? negotiation.UserNameBuf : negotiation.AuthenticationIdBuf), letter);
}

class Conversation {
  public:
    explicit Conversation(const harness::Scenario &scenario) : session_(scenario.client, scenario.server) {
        harness::log_on(scenario, session_);
    }
    Conversation(const Conversation &) = delete;
    Conversation &operator=(const Conversation &) = delete;
    ~Conversation() {
        for (Peer *peer : {&session_.client, &session_.server})
            release_delegated(*peer);
    }

    void run(Input &input) {
        for (int turn = 0; turn < kTurns && !(over_ && input.used_up()); ++turn)
            step(input);
        if (honest_ && done_[0] && done_[1])
            require(selected(session_.client) == selected(session_.server), "both sides select the same mechanism");
    }

  private:
    // The operation's lower bits say what becomes of the token, the upper ones what else is done.
    void step(Input &input) {
        const unsigned operation = input.byte();
        honest_ = honest_ && operation == 0;
        Peer &peer = session_.side(turn_);
        std::string given = altered(operation & 7, input);
        const unsigned failing = (operation & 8) != 0 ? input.byte() : INT_MAX;
        peer.ask = (operation & 16) == 0;
        call(peer, given, static_cast<int>(failing));
        if ((operation & 32) != 0)
            use(peer, static_cast<int>(failing));
        if ((operation & 64) != 0) {
            release_delegated(peer);
            peer.end();
        }
        if ((operation & 128) == 0)
            turn_ = turn_ == scripted::kClient ? scripted::kServer : scripted::kClient;
    }

    std::string altered(unsigned how, Input &input) {
        std::string token = token_;
        switch (how) {
        case 1: // bytes are set
            for (unsigned edits = 1 + input.below(8), i = 0; i < edits && !token.empty(); ++i) {
                const unsigned high = input.byte(), at = high << 8 | input.byte();
                token[at % token.size()] = static_cast<char>(input.byte());
            }
            return token;
        case 2: // cut off
            token.resize(std::min<std::size_t>(token.size(), input.byte()));
            return token;
        case 3: // anything
            return std::string(input.bytes(input.byte()));
        case 4: // one of before
            return tokens_.empty() ? "" : tokens_[input.below(tokens_.size())];
        case 5:
        case 6: // made to measure
            return fuzz::made_token(input);
        case 7: // something more
            return token + std::string(input.bytes(input.byte()));
        default:
            return token;
        }
    }

    void call(Peer &peer, const std::string &given, int failing) {
        release_delegated(peer);
        const harness::Outcome outcome = [&] {
            const failing_heap::From heap(failing);
            return peer.call(given);
        }();
        const bool failed = GSS_ERROR(outcome.major) != 0;
        const bool complete = !failed && (outcome.major & GSS_S_CONTINUE_NEEDED) == 0;
        require(harness::is_known(outcome.minor), "every minor status is one of the tables or the mechanism's");
        require(!failed || outcome.output != Output::kToken, "a failure brings no token");
        require(complete || (peer.source == nullptr && peer.delegated == nullptr), "results come with completion");
        if (complete) {
            const NegMechEntry_desc *entry = qxnego::selected_entry(peer.negotiation());
            require(entry != nullptr && entry->IsCtxEstablished != 0, "what is selected is established");
            require(turn_ == scripted::kClient ||
                        (peer.negotiation().IsPolicyApplied != 0 &&
                         is_allowed(peer.negotiation(), harness::letter_of(*entry->pMechOid))),
                    "what is selected is allowed");
        }
        done_[turn_] = complete;
        over_ = failed || outcome.token.empty();
        token_ = outcome.token;
        if (!token_.empty())
            tokens_.push_back(token_);
    }

    // Every call that a context is good for, whatever state it is in.
    void use(Peer &peer, int failing) {
        peer.act();
        const failing_heap::From heap(failing);
        qxgss_buffer_desc message{5, const_cast<char *>("hello")}, protection{}, plain{}, properties{};
        OM_uint32 number = 0;
        int open = 0;
        QXNEGO_inquire_context(nullptr, peer.context, nullptr, nullptr, &number, nullptr, nullptr, nullptr, &open);
        QXNEGO_wrap_size_limit(nullptr, peer.context, 1, 0, 100, &number);
        if (QXNEGO_wrap(nullptr, peer.context, 1, 0, &message, nullptr, &protection) == GSS_S_COMPLETE)
            QXNEGO_unwrap(nullptr, peer.context, &protection, &plain, nullptr, nullptr);
        gssp_release_buffer(nullptr, &protection);
        gssp_release_buffer(nullptr, &plain);
        if (QXNEGO_get_mic(nullptr, peer.context, 0, &message, &protection) == GSS_S_COMPLETE)
            QXNEGO_verify_mic(nullptr, peer.context, &message, &protection, nullptr);
        gssp_release_buffer(nullptr, &protection);
        const OM_uint32 major = QXNEGO_inquire_properties_for_user(nullptr, peer.context, &properties);
        require(GSS_ERROR(major) == 0 || properties.value == nullptr, "a failure brings no properties");
        gssp_release_buffer(nullptr, &properties);
        if (peer.context != nullptr)
            check_trace(peer.negotiation());
    }

    static void check_trace(const NegContext_desc &negotiation) {
        char line[qxnego::kTraceLine];
        for (const NegLogRecord &record : std::span(negotiation.NegLog.pRecords, negotiation.NegLog.Count)) {
            const std::size_t length = qxnego::write_trace_line(line, record, negotiation);
            const auto is_safe = [](char c) { return c >= 0x20 && c < 0x7F; };
            require(std::find_if_not(line, line + length, is_safe) == line + length - 1 && line[length - 1] == '\n',
                    "a traced record is one line of safe text");
        }
    }

    static std::string selected(const Peer &peer) {
        const NegMechEntry_desc *entry = qxnego::selected_entry(peer.negotiation());
        return {static_cast<const char *>(entry->pMechOid->elements), entry->pMechOid->length};
    }

    // Delegated credentials belong to the application, which releases them with the mechanism that was selected.
    static void release_delegated(Peer &peer) {
        if (peer.delegated == nullptr)
            return;
        peer.act();
        const MechInfo_t *mechanism = qxnego::registered(peer.negotiation().SelectedMechInfoIndex);
        require(mechanism != nullptr, "a delegated credential is the selected mechanism's");
        mechanism->MechFtnTable.ftn_gssp_release_cred(nullptr, &peer.delegated);
    }

    harness::Session session_;
    Side turn_ = scripted::kClient;
    std::string token_;
    std::vector<std::string> tokens_;
    bool done_[2] = {false, false};
    bool over_ = false;
    bool honest_ = true;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    static const bool configured = [] {
        OM_uint32 major = 0;
        const std::string message = harness::configure(&major, harness::configuration());
        return major == GSS_S_COMPLETE && message.empty();
    }();
    require(configured, "the mechanisms are configured");
    Input input(data, size);
    const auto scenarios = harness::scenarios();
    const harness::Scenario &scenario = scenarios[input.below(scenarios.size())];
    harness::prepare(scenario);
    for (unsigned changes = input.below(8); changes != 0; --changes)
        change_behaviour(input);
    {
        Conversation conversation(scenario);
        conversation.run(input);
    }
    require(scripted::live_objects() == 0 || !all_release(), "every credential and context is released");
    return 0;
}
