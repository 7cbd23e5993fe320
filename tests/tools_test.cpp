// What the command is made of, where no connection is needed to see it: text that is safe to show, places for clients,
// processes that misbehave, an output that nobody reads; and what dump says of a token, where the fuzz target's rules
// do not: where the first wrong byte is and why, and what the tokens of others are.
#include <algorithm>
#include <csignal>
#include <list>
#include <sstream>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <unistd.h>

#include "common/text.h"
#include "tools/connection/admission.h"
#include "tools/connection/output.h"
#include "tools/connection/worker.h"
#include "tools/show/table.h"
#include "tools/token/foreign.h"
#include "tools/token/tree.h"

namespace {

using namespace std::chrono_literals;
using namespace tools;

TEST(Text, IsValidUtf8AndSafe) {
    const std::pair<std::string_view, std::string_view> rows[] = {
        {"plain, \xC3\xA9 \xE2\x82\xAC \xF0\x9F\x98\x80", "plain, \xC3\xA9 \xE2\x82\xAC \xF0\x9F\x98\x80"},
        {std::string_view("a\0b\n\x1B\x7F", 6), R"(a\x00b\x0a\x1b\x7f)"},
        {"\xED\xA0\x80", R"(\xed\xa0\x80)"},                 // half of a surrogate pair
        {"\xF4\x90\x80\x80", R"(\xf4\x90\x80\x80)"},         // above U+10FFFF
        {"\xC0\xAF\xE0\x80\xAF", R"(\xc0\xaf\xe0\x80\xaf)"}, // longer than need be
        {"\xC2\x85", R"(\xc2\x85)"},                         // a C1 control
        {"\xE2\x80\xAE\xE2\x81\xA6\xE2\x80\xA8", R"(\xe2\x80\xae\xe2\x81\xa6\xe2\x80\xa8)"},
        {"\xE2\x80\x8B\xC2\xAD\xF3\xA0\x81\x81", R"(\xe2\x80\x8b\xc2\xad\xf3\xa0\x81\x81)"}, // what is not seen
    };
    for (const auto &[text, shown] : rows)
        EXPECT_EQ(common::printable(text), shown);
    EXPECT_EQ(common::quoted("say \"\\n\"\n"), R"("say \"\\n\"\x0a")");
    EXPECT_EQ(common::printable("abc\xC3\xA9\x01", 5), "abc\xC3\xA9...");
    EXPECT_EQ(common::printable("abc\xC3\xA9\x01", 4), "abc...");
    EXPECT_EQ(common::printable("a\x01", 4), "a...");
    EXPECT_EQ(common::quoted(std::string(1000, '"')).size(), common::kMostOfText + 4);
}

struct Terminal {
    explicit Terminal(const winsize *size = nullptr) {
        EXPECT_EQ(openpty(&reader, &writer, nullptr, nullptr, size), 0);
    }
    Terminal(const Terminal &) = delete;
    Terminal &operator=(const Terminal &) = delete;
    ~Terminal() { close(reader), close(writer); }
    int reader = -1, writer = -1;
};

// Whatever stands in the widest cell, the others are not made as wide, and the last column is at least 20 wide.
TEST(Table, IsAsWideAsTheTerminalAndNoLargerThanItsLimits) {
    const winsize size = {24, 60, 0, 0};
    const Terminal terminal(&size);
    const int before = dup(STDOUT_FILENO);
    dup2(terminal.writer, STDOUT_FILENO);
    Table table({"mechanism", "text"});
    for (std::size_t i = 0; i != kMostRows + 5; ++i)
        table.add({i == 0 ? std::string(10'000, 'x') : "x", i == 1 ? std::string(10'000, 'z') : "z"});
    std::stringstream lines;
    table.print(lines);
    dup2(before, STDOUT_FILENO);
    close(before);
    EXPECT_TRUE(lines.str().ends_with("and 5 more\n"));
    for (std::string line; std::getline(lines, line);)
        ASSERT_LE(line.size(), 91U) << line; // 2, the widest with its dots, 2, 20
}

// What those wait who come from these addresses, in milliseconds.
std::string waits(Admission &admission, std::string_view addresses, Clock::time_point now) {
    std::string out;
    for (const char address : addresses) {
        const auto wait = admission.admit({address}, now);
        out += (wait ? std::to_string(wait->count()) : "refused") + ' ';
    }
    return out;
}

TEST(Admission, PlacesAreLimitedAndFailuresSlow) {
    Admission admission({3, 2, 6});
    const Clock::time_point start = Clock::now();
    EXPECT_EQ(waits(admission, "aaabc", start), "0 0 refused 0 refused ");
    EXPECT_EQ(admission.refused().by_address, 1U);
    EXPECT_EQ(admission.refused().by_clients, 1U);
    std::string waited;
    for (int i = 0; i != 7; ++i) { // of which a minute has six for nothing
        admission.leave("a", true, start);
        waited += waits(admission, "a", start);
    }
    EXPECT_EQ(waited, "0 0 0 0 0 0 10000 ");
    admission.leave("b", false, start);
    EXPECT_EQ(waits(admission, "b", start), "0 "); // nobody else pays
    admission.leave("a", false, start);
    EXPECT_EQ(waits(admission, "a", start + 8s), "2000 ");
}

// Whoever shares an address with a stranger who failed without end is as slow as can be, and no longer than that; and
// however many addresses the stranger has, they are forgotten.
TEST(Admission, FailuresAreForgivenAndAddressesForgotten) {
    Admission admission({64, 64, 20});
    const Clock::time_point start = Clock::now();
    const auto fail = [&](const std::string &address) {
        ASSERT_TRUE(admission.admit(address, start));
        admission.leave(address, true, start);
    };
    for (int i = 0; i != 10'000; ++i)
        fail("a");
    EXPECT_EQ(waits(admission, "a", start) + waits(admission, "a", start + 10s), "10000 0 ");
    for (int i = 0; i != 100'000; ++i)
        fail(std::to_string(i));
    EXPECT_LT(admission.size(), 5000U);
}

TEST(Worker, IsEndedWhateverItDoes) {
    // What is said of it, what it does, and whether it lifts its deadline
    const std::tuple<std::string, std::function<std::string(const Worker::Lift &)>, bool> rows[] = {
        {"", [](const Worker::Lift &) { return "whole"; }, false},
        {"", [](const Worker::Lift &lift) { return lift(), "whole"; }, true},
        {"its process said too much", [](const Worker::Lift &) { return std::string(1 << 20, 'x'); }, false},
        {"its process was ended by a signal: Killed",
         [](const Worker::Lift &) { return close_range(3, ~0U, 0), pause(), ""; }, false},
        {"its process ended with status 1", [](const Worker::Lift &) -> std::string { throw std::bad_alloc(); }, false},
        {"its process took too long", [](const Worker::Lift &) { return pause(), ""; }, false},
        {"its process took too long", [](const Worker::Lift &) { return raise(SIGSTOP), ""; }, false},
    };
    std::list<Worker> workers; // at once, since some take as long as they may
    const auto begun = Clock::now();
    for (const auto &[said, body, lifts] : rows)
        workers.emplace_back(body, 1s);
    for (const auto &[said, body, lifts] : rows) {
        Worker &worker = workers.front();
        pollfd place{worker.descriptor(), POLLIN, 0};
        do
            poll(&place, 1, milliseconds_until(worker.deadline()));
        while (worker.read_some());
        EXPECT_LT(Clock::now() - begun, 4s) << said;
        EXPECT_EQ(worker.has_crashed(), !said.empty());
        EXPECT_EQ(worker.is_lifted(), lifts);
        EXPECT_EQ(worker.result(), said.empty() ? "whole" : said);
        workers.pop_front();
    }
}

// A terminal says that it can be written to, and takes less than is there to write; a pipe takes what it has room for.
TEST(Output, HoldsNothingUpAndCountsWhatItDrops) {
    const Terminal terminal;
    Output unread(terminal.writer);
    unread.add(std::string(100'000, 'x'));
    alarm(10);
    for (int i = 0; i != 1000; ++i)
        unread.write_some();
    alarm(0);
    EXPECT_TRUE(unread.is_waiting());
    EXPECT_EQ(fcntl(terminal.writer, F_GETFL) & O_NONBLOCK, 0); // that of others
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    Output output(ends[1]);
    const std::string line(1000, 'x');
    for (int i = 0; i != 5000; ++i)
        output.add(line + '\n');
    EXPECT_GT(output.take_dropped(), 3000U);
    close(ends[0]);
    signal(SIGPIPE, SIG_IGN);
    output.write_some();
    EXPECT_EQ(output.failure(), EPIPE);
    output.add(line);
    EXPECT_GT(output.take_dropped(), 1U); // with what stood there
    close(ends[1]);
}

// ---- What dump says of a token -------------------------------------------------------------------------------------

// The bytes of hexadecimal digits, so many times.
Bytes from_hex(std::string_view digits, std::size_t times = 1) {
    Bytes out;
    for (const Bytes once = tools::from_hex(digits).value(); times != 0; --times)
        out.insert(out.end(), once.begin(), once.end());
    return out;
}

TEST(Dump, MarksTheFirstWrongByte) {
    Bytes flat = from_hex("9e00", GSSPASN_DECODE_MAX_ELEMENTS);
    flat.insert(flat.begin(), {0xA0, 0x80});
    const std::tuple<Bytes, std::size_t, const char *> cases[] = {
        {{}, 0, "an element should begin here"},
        {from_hex("a0"), 1, "a length should follow"},
        {from_hex("a0ff"), 1, "a length octet has the reserved value FF"},
        {from_hex("a08400"), 1, "the length has more octets than are there"},
        {from_hex("a006a00280058100"), 5, "the length is 5, and only 0 bytes follow in the element around it"},
        {from_hex("a0028080"), 3, "a primitive element has an indefinite length"},
        {from_hex("a002bf00"), 2, "the tag number is 31 or above"},
        {from_hex("a0808000000100"), 5, "the end of an indefinite length is two zero octets"},
        {from_hex("a080", 17), 32, "elements are nested more than 16 deep"},
        {flat, 2 * GSSPASN_DECODE_MAX_ELEMENTS, "more than 16384 elements"},
        {Bytes(GSSPASN_DECODE_MAX_TOKEN + 1, 0xA0), GSSPASN_DECODE_MAX_TOKEN, "the token is larger than 1 MiB"},
        {from_hex("a00da008a006800101010101810102"), 9, "the element's class is not context-specific"},
        {from_hex("a00da008a0068001018101018101020101"), 15, "more bytes follow the outer element"},
        {from_hex("a00aa008a006800101810101"), 12, "INIT has no negotiation state [1] where it belongs"},
        {from_hex("a00aa005a003810101810102"), 6, "mechanism has no OID [0] where it belongs"},
        {from_hex("a00ca007a0058000810101810102"), 7, "the OID is empty"},
        {from_hex("a00da008a006800101810101810103"), 14, "no INIT has that negotiation state"},
        {from_hex("a005a000810102"), 3, "the mechanism list is empty"},
        {from_hex("a00ea008a00680010181010181020002"), 14,
         "the negotiation state is not the shortest form of a number of 32 bits"},
        {from_hex("a10ca008a006800101810101a100"), 12, "the negotiation state is constructed"},
    };
    for (const auto &[token, offset, why] : cases) {
        const TokenTree tree = read_token(token);
        ASSERT_TRUE(tree.fault) << why;
        EXPECT_EQ(tree.fault->offset, offset) << why;
        EXPECT_EQ(tree.fault->why, why);
    }
}

std::string told(const Bytes &token) {
    const auto foreign = read_foreign(token);
    std::string out = foreign ? foreign->kind : "";
    for (const auto &field : foreign ? foreign->fields : std::vector<Foreign::Field>())
        out += "; " + field.name + ' ' + field.value;
    return out;
}

TEST(Dump, TellsTokensOfOthers) {
    const std::pair<const char *, const char *> cases[] = {
        {"605106092a864886f71201020201006e423040a003020105a33961373035a003020105a1031b0152a2143012a003020103a10b30091b0"
         "4686f73741b0168a3133011a003020112a103020102a205040378797a",
         "Kerberos AP-REQ; mechanism Kerberos; service host/h@R; key version 2; encryption type 18; ticket 3 bytes"},
        {"603d06092a864886f71201020203007e2e302ca003020105a603020125a9031b0152aa143012a003020103a10b30091b04686f73741b0"
         "168ab051b036e6f1b",
         "Kerberos KRB-ERROR; mechanism Kerberos; error 37; text no\\x1b; service host/h@R"},
        {"602e06062b0601050502a0243022a019301706092a864886f712010202060a2b06010401823702020aa30504036d6963",
         "RFC 4178 NegTokenInit; mechanisms Kerberos, NTLMSSP; MIC 3 bytes"},
        {"a1293027a0030a0101a10c060a2b06010401823702020aa21204104e544c4d535350000100000002020000",
         "RFC 4178 NegTokenResp; state accept-incomplete; mechanism NTLMSSP; response token NTLMSSP NEGOTIATE, 16 "
         "bytes;   flags OEM, NTLM"},
        {"4e544c4d5353500003000000000000000000000002000200480000000400040040000000040004004400000009000900e803000000000"
         "000000000000102000051005800e9000a003f3f",
         "NTLMSSP AUTHENTICATE; flags Unicode, NTLM; domain QX; user é\\x0a; NTLM response 2 bytes"},
    };
    for (const auto &[text, expected] : cases) {
        const Bytes token = from_hex(text);
        EXPECT_EQ(told(token), expected);
        for (std::size_t at = 0; at < token.size(); ++at)
            for (unsigned value = 0; value <= 256; ++value) { // beyond an octet's values it is cut
                Bytes changed = token;
                changed[at] = static_cast<unsigned char>(value);
                changed.resize(value == 256 ? at : token.size());
                const std::string shown = told(changed);
                ASSERT_EQ(shown, printable(shown)) << at;
            }
    }
    EXPECT_EQ(told(from_hex("a108a0008101028201ff")), "");
}

} // namespace
