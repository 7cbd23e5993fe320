// Every byte of every token: all tokens of the scenarios, changed in every way below, are handed to both roles at every
// leg. Whatever comes, the call ends with a status of the tables, the context can be asked, fed again and deleted, and
// a completion is one that a valid peer could have had. Run with QXNEGO_SWEEP=full; without it a sample is tried.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>

#include "testkit/ber.h"
#include "tests/scenarios.h"

namespace {

using namespace harness;

// ---- Changed tokens ------------------------------------------------------------------------------------------------

struct Element {
    unsigned tag;
    std::size_t length_at; // where its length begins
    std::string content;
};

// The elements of (a part of) one of our own tokens: DER, one length octet to three.
std::vector<Element> parse(const std::string &token) {
    std::vector<Element> elements;
    const auto octet = [&](std::size_t at) { return static_cast<unsigned char>(token[at]); };
    for (std::size_t at = 0; at < token.size();) {
        const std::size_t more = octet(at + 1) > 0x80 ? octet(at + 1) - 0x80U : 0;
        std::size_t length = more == 0 ? octet(at + 1) : 0;
        for (std::size_t i = 0; i < more; ++i)
            length = length * 256 + octet(at + 2 + i);
        elements.push_back({octet(at), at + 1, token.substr(at + 2 + more, length)});
        at += 2 + more + length;
    }
    return elements;
}

std::string encode(const std::vector<Element> &elements) {
    std::string out;
    for (const Element &element : elements)
        out += testkit::tlv(element.tag, element.content);
    return out;
}

// The token with each of its elements changed; those around it have the length that they need.
std::vector<std::string> change_elements(const std::string &token) {
    std::vector<std::string> out;
    const std::vector<Element> elements = parse(token);
    EXPECT_EQ(encode(elements), token);
    for (std::size_t i = 0; i < elements.size(); ++i) {
        const auto change = [&](auto use) {
            std::vector<Element> copy = elements;
            use(copy);
            out.push_back(encode(copy));
        };
        const auto place = static_cast<std::ptrdiff_t>(i);
        change([&](auto &all) { all.erase(all.begin() + place); });
        change([&](auto &all) { all.insert(all.begin() + place, elements[i]); });
        change([&](auto &all) { std::swap(all[i], all[(i + 1) % all.size()]); });
        change([&](auto &all) { all[i].content.clear(); });
        for (const unsigned tag : {0x80U, 0x81U, 0x82U, 0x83U, 0x84U, 0x85U, 0x86U, 0x87U, 0xA0U, 0xA1U})
            change([&](auto &all) { all[i].tag = tag; });
        const std::size_t at = elements[i].length_at;
        const char less = static_cast<char>(token[at] - 1), more = static_cast<char>(token[at] + 1);
        for (const char *other :
             {"\x7E", "\x83\x0F\xFF\xFF", "\x84\xFF\xFF\xFF\xFF", "\x88\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF"})
            out.push_back(std::string(token).replace(at, 1, other));
        for (const char other : {less, more})
            out.push_back(std::string(token).replace(at, 1, 1, other));
        if ((elements[i].tag & 0x20) != 0)
            for (const std::string &content : change_elements(elements[i].content))
                change([&](auto &all) { all[i].content = content; });
    }
    return out;
}

std::vector<std::string> changes(const std::string &token) {
    std::vector<std::string> out = change_elements(token);
    for (std::size_t length = 0; length < token.size(); ++length)
        out.push_back(token.substr(0, length));
    for (std::size_t i = 0; i < token.size(); ++i)
        for (const int value : {0x00, 0x01, 0x02, 0x03, 0x7F, 0x80, 0x81, 0xA0, 0xFF}) {
            out.push_back(token);
            out.back()[i] = static_cast<char>(value);
        }
    return out;
}

// ---- What must hold ------------------------------------------------------------------------------------------------

// Whether "onlya" and so on stand for another mechanism than that one.
bool forbids(std::string_view user, char letter) {
    return user.size() == 5 && user.substr(0, 4) == "only" && user[4] >= 'a' && user[4] <= 'd' &&
           user[4] != letter - 'A' + 'a';
}

// The selected mechanism has itself established its context with its own tokens, and may be used by whom it is for.
void expect_earned(const Peer &peer, Side side) {
    const NegContext_desc &negotiation = peer.negotiation();
    int open = 0;
    QXNEGO_inquire_context(nullptr, peer.context, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, &open);
    EXPECT_EQ(open, 1);
    const NegMechEntry_desc &entry = negotiation.NegMechList.pNegMech[negotiation.SelectedMechListIndex];
    EXPECT_EQ(entry.MechState, NEG_MECH_STATE_SELECTED);
    if (side == kClient)
        return;
    const char letter = letter_of(*entry.pMechOid);
    EXPECT_EQ(negotiation.IsPolicyApplied, 1U);
    EXPECT_FALSE(letter == 'B' && negotiation.UserNameBuf.length + negotiation.ProfileNameBuf.length != 0);
    bool allowed = !forbids(text_of(negotiation.AuthenticationIdBuf), letter);
    if (negotiation.UserNameBuf.length != 0)
        allowed = !forbids(text_of(negotiation.UserNameBuf), letter);
    else if (negotiation.IsSso != 0)
        for (OM_uint32 i = 0; i < negotiation.NegMechList.Count; ++i)
            allowed |= !forbids(text_of(negotiation.NegMechList.pNegMech[i].SsoAuthenticationIdBuf), letter);
    EXPECT_TRUE(allowed);
}

void feed(Peer &peer, Side side, std::string_view token) {
    const Outcome outcome = peer.call(token);
    ASSERT_NE(peer.context, nullptr);
    if (outcome.major == GSS_S_COMPLETE)
        expect_earned(peer, side);
    else if (outcome.major == GSS_S_CONTINUE_NEEDED)
        EXPECT_EQ(outcome.minor, QXNEGO_E_CONTINUE_NEEDED);
    else
        EXPECT_TRUE((std::strcmp(qxnegoerrtostr(outcome.minor), "?") != 0 ||
                     std::strcmp(qxgsserrtostr(outcome.minor), "?") != 0 || outcome.minor == 0xC5000007U) &&
                    GSS_ERROR(outcome.major) != 0 && outcome.output != Output::kToken)
            << hex(outcome.major) << '/' << hex(outcome.minor);
    qxgss_buffer_desc properties{};
    OM_uint32 minor = 0;
    // A token can move the selection of a complete context to a mechanism that has none itself, or is the peer's alone.
    EXPECT_TRUE(QXNEGO_inquire_properties_for_user(&minor, peer.context, &properties) == GSS_S_COMPLETE ||
                (GSS_ERROR(outcome.major) != 0 && (minor == scripted::kNoContext || minor == QXNEGO_E_NEG_CONTEXT)));
    gssp_release_buffer(nullptr, &properties);
}

// The scenario up to that leg, the changed token for one side, and the right one afterwards.
void try_token(const Scenario &scenario, const std::vector<std::string> &tokens, std::size_t leg, Side side,
               const std::string &changed) {
    prepare(scenario);
    {
        Session session(scenario.client, scenario.server);
        log_on(scenario, session);
        session.client.call("");
        for (std::size_t i = 0; i < leg; ++i)
            session.side(i % 2 == 0 ? kServer : kClient).call(tokens[i]);
        Peer &peer = session.side(side);
        feed(peer, side, changed);
        feed(peer, side, tokens[leg]);
    }
    EXPECT_EQ(scripted::live_objects(), 0);
}

TEST(TokenSweep, NoChangedTokenDoesHarm) {
    OM_uint32 major = 0;
    ASSERT_EQ(configure(&major, configuration()), "");
    const char *how = std::getenv("QXNEGO_SWEEP");
    const bool full = how != nullptr && std::strcmp(how, "full") == 0;
    const std::size_t stride = full ? 1 : 11; // a prime, so that the sample falls everywhere
    std::size_t number = 0, tried = 0;
    for (const Scenario &scenario : scenarios()) {
        prepare(scenario);
        std::vector<std::string> tokens;
        {
            Session session(scenario.client, scenario.server);
            log_on(scenario, session);
            session.run();
            tokens = session.tokens;
        }
        for (const std::string &token : tokens)
            for (const std::string &changed : changes(token))
                for (std::size_t leg = 0; leg < tokens.size(); ++leg)
                    for (const Side side : {kClient, kServer}) {
                        if (++number % stride != 0)
                            continue;
                        ++tried;
                        try_token(scenario, tokens, leg, side, changed);
                        ASSERT_FALSE(HasFailure()) << scenario.name << ", leg " << leg << ", "
                                                   << (side == kClient ? "client" : "server") << ": " << hex(changed);
                    }
    }
    scripted::reset();
    std::printf("%zu tokens tried of %zu\n", tried, number);
}

} // namespace
