// Makes the allocations of the code under test fail, and watches what it leaves behind. A program that uses it is
// linked with the objects under test, not with shared libraries of them: only objects have their heap operations
// replaced.
#ifndef QXNEGO_FAILING_HEAP_H
#define QXNEGO_FAILING_HEAP_H

#include <cstdio>
#include <string_view>

#include <gtest/gtest.h>

namespace failing_heap {

// While one lives, allocation number `failing` (from 0) of the C heap fails, and with `all_later` every one after it;
// `in_windows` counts only those that are made inside windows, and what new allocates there.
class From {
  public:
    explicit From(int failing, bool all_later = true, bool in_windows = false);
    From(const From &) = delete;
    From &operator=(const From &) = delete;
    ~From();

    // Whether one has failed.
    bool happened() const;
};

void open_window(bool open);
struct Window {
    Window() { open_window(true); }
    Window(const Window &) = delete;
    Window &operator=(const Window &) = delete;
    ~Window() { open_window(false); }
};

// Blocks that are allocated, by whomever.
long live_blocks();

// From now on counts the blocks that are given back while they hold that text (at most 16 bytes of ASCII), in any of
// the UTF encodings; an empty one ends it. A block that realloc replaces is given back as well.
void watch_for(std::string_view secret);
int secrets_given_back();

// Lives with allocation number 0, 1, 2 ... of its windows failing, until a life sees no failure: nothing is left
// behind, and no secret is given back.
template <typename Live, typename Blocks = long (*)()>
void sweep(bool all_later, const Live &live, const Blocks &blocks = live_blocks) {
    int points = 0;
    for (bool happened = true; happened && !testing::Test::HasFailure(); points += happened) {
        SCOPED_TRACE("allocation " + std::to_string(points) + (all_later ? " and all later" : ""));
        const long before = blocks();
        {
            const From failing(points, all_later, true);
            live();
            happened = failing.happened();
        }
        EXPECT_EQ(blocks(), before);
        EXPECT_EQ(secrets_given_back(), 0);
    }
    std::printf("%d allocations failed\n", points);
}

} // namespace failing_heap

#endif
