// The heap's operations as the linker's --wrap option puts them before the code under test.
#include "tests/failing_heap.h"

#include <climits>
#include <cstddef>

namespace {

int left = INT_MAX;
bool failed = false;

bool fails() {
    if (left == INT_MAX)
        return false;
    if (left > 0) {
        --left;
        return false;
    }
    failed = true;
    return true;
}

} // namespace

namespace failing_heap {

From::From(int failing) {
    left = failing;
    failed = false;
}
From::~From() {
    left = INT_MAX;
}
bool From::happened() const {
    return failed;
}

} // namespace failing_heap

// The linker wants them visible: libraries refer to the wrapped names too, though they keep the real operations.
#pragma GCC visibility push(default)
extern "C" {
void *__real_malloc(std::size_t size);
void *__real_calloc(std::size_t count, std::size_t size);
void *__real_realloc(void *block, std::size_t size);
char *__real_strndup(const char *text, std::size_t size);

void *__wrap_malloc(std::size_t size) {
    return fails() ? nullptr : __real_malloc(size);
}
void *__wrap_calloc(std::size_t count, std::size_t size) {
    return fails() ? nullptr : __real_calloc(count, size);
}
void *__wrap_realloc(void *block, std::size_t size) {
    return fails() ? nullptr : __real_realloc(block, size);
}
char *__wrap_strndup(const char *text, std::size_t size) {
    return fails() ? nullptr : __real_strndup(text, size);
}
}
#pragma GCC visibility pop
