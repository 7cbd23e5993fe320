// Every token of the scenarios, changed in every way below, is handed to both roles at every leg. Whatever comes, the
// call ends with a status of the tables, the context can be asked, fed again and deleted, and a completion is one that
// a valid peer could have had. Run with QXNEGO_SWEEP=full; without it a sample is tried.
#include <gtest/gtest.h>

#include <cstdlib>

#include "testkit/ber.h"
#include "tests/scenarios.h"

namespace {

using namespace harness;

// The elements of (a part of) one of our own tokens: identifiers and contents, of at most 255 octets.
using Elements = std::vector<std::pair<unsigned, std::string>>;

Elements parse(const std::string &token) {
    Elements elements;
    const auto octet = [&](std::size_t at) { return static_cast<unsigned char>(token[at]); };
    for (std::size_t at = 0, begin = 0; at < token.size(); at = begin + elements.back().second.size()) {
        begin = at + (octet(at + 1) == 0x81 ? 3 : 2);
        elements.emplace_back(octet(at), token.substr(begin, octet(begin - 1)));
    }
    return elements;
}

std::string encode(const Elements &elements) {
    std::string out;
    for (const auto &[identifier, contents] : elements)
        out += testkit::tlv(identifier, contents);
    return out;
}

// The token with each of its elements changed; those around it have the length that they need.
std::vector<std::string> change_elements(const std::string &token) {
    std::vector<std::string> out;
    const Elements elements = parse(token);
    EXPECT_EQ(encode(elements), token);
    for (std::size_t i = 0; i < elements.size(); ++i) {
        const auto change = [&](auto use) {
            Elements copy = elements;
            use(copy);
            out.push_back(encode(copy));
        };
        const auto place = static_cast<std::ptrdiff_t>(i);
        change([&](auto &all) { all.erase(all.begin() + place); });
        change([&](auto &all) { all.insert(all.begin() + place, elements[i]); });
        change([&](auto &all) { std::swap(all[i], all[(i + 1) % all.size()]); });
        change([&](auto &all) { all[i].second.clear(); });
        for (const unsigned identifier : {0x80U, 0x81U, 0x82U, 0x83U, 0x84U, 0x85U, 0x86U, 0x87U, 0xA0U, 0xA1U})
            change([&](auto &all) { all[i].first = identifier; });
        if ((elements[i].first & 0x20) != 0)
            for (const std::string &contents : change_elements(elements[i].second))
                change([&](auto &all) { all[i].second = contents; });
    }
    return out;
}

std::vector<std::string> changes(const std::string &token) {
    std::vector<std::string> out = change_elements(token);
    for (std::size_t at = 0; at < token.size(); ++at) {
        out.push_back(token.substr(0, at));
        for (const int value : {0x00, 0x01, 0x02, 0x03, 0x7F, 0x80, 0x81, 0xA0, 0xFF, token[at] - 1, token[at] + 1})
            out.push_back(std::string(token).replace(at, 1, 1, static_cast<char>(value)));
    }
    return out;
}

// Whether "onlya" and so on stand for another mechanism than that one.
bool forbids(const std::string &user, char letter) {
    return user.size() == 5 && user.starts_with("only") && user[4] >= 'a' && user[4] <= 'd' &&
           user[4] != letter - 'A' + 'a';
}

// The selected mechanism has itself established its context with its own tokens, and may be used by whom it is for.
void expect_earned(const Peer &peer, Side side) {
    const NegContext_desc &negotiation = peer.negotiation();
    int open = 0;
    QXNEGO_inquire_context(nullptr, peer.context, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, &open);
    const NegMechEntry_desc &entry = negotiation.NegMechList.pNegMech[negotiation.SelectedMechListIndex];
    EXPECT_TRUE(open == 1 && entry.MechState == NEG_MECH_STATE_SELECTED);
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
    const bool failed = GSS_ERROR(outcome.major) != 0;
    ASSERT_NE(peer.context, nullptr);
    if (outcome.major == GSS_S_COMPLETE)
        expect_earned(peer, side);
    else
        EXPECT_TRUE(failed ? is_known(outcome.minor) && outcome.output != Output::kToken
                           : outcome.statuses() == kGoesOn)
            << outcome.statuses();
    qxgss_buffer_desc properties{};
    OM_uint32 minor = 0;
    // A token can move the selection of a complete context to a mechanism that has none itself, or is the peer's alone.
    EXPECT_TRUE(QXNEGO_inquire_properties_for_user(&minor, peer.context, &properties) == GSS_S_COMPLETE ||
                (failed && (minor == scripted::kNoContext || minor == QXNEGO_E_NEG_CONTEXT)));
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
        feed(session.side(side), side, changed);
        feed(session.side(side), side, tokens[leg]);
    }
    EXPECT_EQ(scripted::live_objects(), 0);
}

TEST_F(NegotiationTest, NoChangedTokenDoesHarm) {
    const std::size_t stride = std::getenv("QXNEGO_SWEEP") != nullptr ? 1 : 11; // a prime: the sample falls everywhere
    std::size_t number = 0;
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
                for (std::size_t leg = 0; leg < 2 * tokens.size(); ++leg)
                    if (const Side side = leg % 2 == 0 ? kClient : kServer; ++number % stride == 0) {
                        try_token(scenario, tokens, leg / 2, side, changed);
                        ASSERT_FALSE(HasFailure())
                            << scenario.name << ", leg " << leg / 2 << ", side " << side << ": " << hex(changed);
                    }
    }
    std::printf("%zu tokens tried of %zu\n", number / stride, number);
}

} // namespace
