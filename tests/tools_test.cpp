// What the command is made of, where no connection is needed to see it: text that is safe to show, places for clients,
// an output that nobody reads.
#include <algorithm>
#include <csignal>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "common/text.h"
#include "tools/connection/admission.h"
#include "tools/connection/output.h"

namespace {

using namespace std::chrono_literals;
using namespace tools;

TEST(Text, IsValidUtf8AndSafe) {
    struct Row {
        std::string_view text, shown;
    };
    const Row rows[] = {
        {"plain, \xC3\xA9 \xE2\x82\xAC \xF0\x9F\x98\x80", "plain, \xC3\xA9 \xE2\x82\xAC \xF0\x9F\x98\x80"},
        {std::string_view("a\0b\n\x1B\x7F", 6), R"(a\x00b\x0a\x1b\x7f)"},
        {"\xED\xA0\x80", R"(\xed\xa0\x80)"},                 // half of a surrogate pair
        {"\xF4\x90\x80\x80", R"(\xf4\x90\x80\x80)"},         // above U+10FFFF
        {"\xC0\xAF\xE0\x80\xAF", R"(\xc0\xaf\xe0\x80\xaf)"}, // longer than need be
        {"\xC2\x85", R"(\xc2\x85)"},                         // a C1 control
        {"\xE2\x80\xAE\xE2\x81\xA6\xE2\x80\xA8", R"(\xe2\x80\xae\xe2\x81\xa6\xe2\x80\xa8)"},
        {"\xE2\x80\x8B\xC2\xAD\xF3\xA0\x81\x81", R"(\xe2\x80\x8b\xc2\xad\xf3\xa0\x81\x81)"}, // what is not seen
        {"\xE2\x82", R"(\xe2\x82)"},
        {"\xFF\x80", R"(\xff\x80)"},
    };
    for (const Row &row : rows)
        EXPECT_EQ(common::printable(row.text), row.shown);
    EXPECT_EQ(common::quoted("say \"\\n\"\n"), R"("say \"\\n\"\x0a")");
}

TEST(Admission, PlacesAreLimitedAndFailuresSlow) {
    Admission admission({3, 2, 6});
    const Clock::time_point start = Clock::now();
    EXPECT_EQ(admission.admit("a", start), 0ms);
    EXPECT_EQ(admission.admit("a", start), 0ms);
    EXPECT_EQ(admission.admit("a", start), std::nullopt);
    EXPECT_EQ(admission.admit("b", start), 0ms);
    EXPECT_EQ(admission.admit("c", start), std::nullopt);
    const Admission::Refused refused = admission.take_refused();
    EXPECT_EQ(refused.by_address, 1U);
    EXPECT_EQ(refused.by_clients, 1U);
    EXPECT_FALSE(admission.take_refused().any());
    for (int i = 0; i != 6; ++i) { // as many as a minute has for nothing
        admission.leave("a", true, start);
        EXPECT_EQ(admission.admit("a", start), 0ms) << i;
    }
    admission.leave("a", true, start);
    EXPECT_EQ(admission.admit("a", start), 10'000ms);
    admission.leave("b", false, start);
    EXPECT_EQ(admission.admit("b", start), 0ms); // nobody else pays
    admission.leave("a", false, start);
    EXPECT_EQ(admission.admit("a", start + 8s), 2'000ms);
}

// However many addresses a stranger has.
TEST(Admission, ForgetsAddresses) {
    Admission admission({64, 64, 20});
    const Clock::time_point start = Clock::now();
    for (int i = 0; i != 100'000; ++i) {
        const std::string address = std::to_string(i);
        ASSERT_TRUE(admission.admit(address, start));
        admission.leave(address, true, start);
    }
    EXPECT_LT(admission.size(), 5000U);
}

TEST(Output, HoldsNothingUpAndCountsWhatItDrops) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    Output output(ends[1]);
    const std::string line(1000, 'x');
    for (int i = 0; i != 5000; ++i)
        output.add(line + '\n');
    const unsigned long dropped = output.take_dropped();
    EXPECT_GT(dropped, 3000U);
    std::size_t size = 0;
    char buffer[65536];
    fcntl(ends[0], F_SETFL, O_NONBLOCK);
    while (output.is_waiting()) {
        output.write_some();
        const ssize_t got = read(ends[0], buffer, sizeof buffer);
        size += static_cast<std::size_t>(std::max<ssize_t>(got, 0));
    }
    EXPECT_EQ(size, (5000 - dropped) * 1001);
    close(ends[0]);
    signal(SIGPIPE, SIG_IGN);
    output.add(line);
    output.write_some();
    EXPECT_TRUE(output.has_failed());
    output.add(line);
    EXPECT_EQ(output.take_dropped(), 2U);
    close(ends[1]);
}

} // namespace
