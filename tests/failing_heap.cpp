// The heap's operations as the linker's --wrap option puts them before the code under test, and the language's.
#include "tests/failing_heap.h"

#include <malloc.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>

namespace {

struct Plan {
    int left = INT_MAX; // until one fails
    bool all_later = true, with_new = false, window_open = true, happened = false;
};
Plan plan;

std::atomic<long> blocks{0};
// What is watched for in UTF-8, UTF-16 and UTF-32; not on the heap itself.
constexpr std::size_t kMaxSecret = 16;
std::size_t secret_length = 0;
char secrets[3][4 * kMaxSecret];
int given_back = 0;

bool fails() {
    if (plan.left == INT_MAX || !plan.window_open)
        return false;
    if (plan.left > 0)
        return --plan.left, false;
    plan.left = plan.all_later ? 0 : INT_MAX;
    plan.happened = true;
    errno = ENOMEM; // as the real ones do
    return true;
}

void *counted(void *block) {
    blocks += block != nullptr;
    return block;
}

void given(void *block) {
    if (block == nullptr)
        return;
    --blocks;
    for (std::size_t i = 0; i < 3 && secret_length != 0; ++i)
        if (memmem(block, malloc_usable_size(block), secrets[i], secret_length << i) != nullptr)
            ++given_back;
}

} // namespace

namespace failing_heap {

From::From(int failing, bool all_later, bool in_windows) {
    plan = {failing, all_later, in_windows, !in_windows};
}
From::~From() {
    plan.left = INT_MAX;
}
bool From::happened() const {
    return plan.happened;
}

void open_window(bool open) {
    plan.window_open = open;
}

long live_blocks() {
    return blocks;
}

void watch_for(std::string_view secret) {
    if (secret.size() > kMaxSecret)
        std::abort();
    std::memset(secrets, 0, sizeof secrets);
    for (std::size_t i = 0; i < 3; ++i)
        for (std::size_t at = 0; at < secret.size(); ++at)
            secrets[i][at << i] = secret[at];
    secret_length = secret.size();
    given_back = 0;
}

int secrets_given_back() {
    return given_back;
}

} // namespace failing_heap

// The linker wants them visible: libraries refer to the wrapped names too, though they keep the real operations.
#pragma GCC visibility push(default)
extern "C" {
void *__real_malloc(std::size_t size);
void *__real_calloc(std::size_t count, std::size_t size);
char *__real_strndup(const char *text, std::size_t size);
void __real_free(void *block);

void *__wrap_malloc(std::size_t size) {
    return fails() ? nullptr : counted(__real_malloc(size));
}
void *__wrap_calloc(std::size_t count, std::size_t size) {
    return fails() ? nullptr : counted(__real_calloc(count, size));
}
void __wrap_free(void *block) {
    given(block);
    __real_free(block);
}
// Always moves, as the real one may.
void *__wrap_realloc(void *block, std::size_t size) {
    void *moved = __wrap_malloc(size);
    if (moved == nullptr || block == nullptr)
        return moved;
    const std::size_t old = malloc_usable_size(block);
    std::memcpy(moved, block, old < size ? old : size);
    __wrap_free(block);
    return moved;
}
char *__wrap_strndup(const char *text, std::size_t size) {
    return fails() ? nullptr : static_cast<char *>(counted(__real_strndup(text, size)));
}
char *__wrap_strdup(const char *text) {
    return __wrap_strndup(text, SIZE_MAX);
}
}

void *operator new(std::size_t size, const std::nothrow_t &) noexcept {
    return plan.with_new && fails() ? nullptr : counted(__real_malloc(size));
}
void *operator new(std::size_t size) {
    void *block = operator new(size, std::nothrow);
    if (block == nullptr)
        throw std::bad_alloc();
    return block;
}
void operator delete(void *block) noexcept {
    __wrap_free(block);
}
void operator delete(void *block, std::size_t) noexcept {
    __wrap_free(block);
}
#pragma GCC visibility pop
