// Descriptors, and the frames in which tokens travel over a stream: four octets of length, most significant first, then
// the token. A frame may be empty; the end of the stream is the peer's way of saying that it gave up.
#ifndef QXNEGO_TOOLS_CHANNEL_H
#define QXNEGO_TOOLS_CHANNEL_H

#include <cstdint>
#include <optional>
#include <utility>

#include "tools/bytes.h"

namespace tools {

class Descriptor {
  public:
    Descriptor() = default;
    explicit Descriptor(int number) : number_(number) {}
    Descriptor(Descriptor &&other) noexcept : number_(std::exchange(other.number_, -1)) {}
    Descriptor &operator=(Descriptor &&other) noexcept {
        close();
        number_ = std::exchange(other.number_, -1);
        return *this;
    }
    ~Descriptor() { close(); }

    int get() const { return number_; }
    void close() noexcept;

  private:
    int number_ = -1;
};

// Two connected stream sockets, closed in programs that are started. Throws Failure.
std::pair<Descriptor, Descriptor> socket_pair();

// Frames larger than this are refused, so that a peer cannot make this side reserve memory at will.
inline constexpr std::uint32_t kLargestFrame = 1U << 20;

// False when the peer has closed its end.
bool send_frame(const Descriptor &stream, ByteView frame);

// The next frame; nothing when the stream has ended, also in the middle of a frame. Throws Failure for a frame that is
// too large and for a system error; when a signal arrives that ends the command, with kExitInterrupted.
std::optional<Bytes> receive_frame(const Descriptor &stream);

} // namespace tools

#endif
