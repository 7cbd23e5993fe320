// What the bytes of a fuzzing input say, read from their front.
#ifndef QXNEGO_FUZZ_INPUT_H
#define QXNEGO_FUZZ_INPUT_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string_view>

namespace fuzz {

// Once the input is used up, every number is 0 and every text empty.
class Input {
  public:
    Input(const std::uint8_t *data, std::size_t size) : left_(reinterpret_cast<const char *>(data), size) {}

    bool used_up() const { return left_.empty(); }
    unsigned byte() {
        const std::string_view one = bytes(1);
        return one.empty() ? 0 : static_cast<unsigned char>(one[0]);
    }
    unsigned below(std::size_t limit) { return static_cast<unsigned>(byte() % limit); }
    template <typename T, std::size_t n> const T &one_of(const T (&choices)[n]) { return choices[below(n)]; }

    // At most `length` bytes.
    std::string_view bytes(std::size_t length) {
        const std::string_view taken = left_.substr(0, length);
        left_.remove_prefix(taken.size());
        return taken;
    }
    // The bytes before the next newline, which is passed over.
    std::string_view line() {
        const std::string_view taken = left_.substr(0, left_.find('\n'));
        left_.remove_prefix(std::min(left_.size(), taken.size() + 1));
        return taken;
    }
    std::string_view rest() { return bytes(left_.size()); }

  private:
    std::string_view left_;
};

// What must hold for every input: the program ends where it does not.
inline void require(bool holds, const char *rule) {
    if (holds)
        return;
    std::fprintf(stderr, "broken: %s\n", rule);
    std::abort();
}

} // namespace fuzz

#endif
