// What two processes say to each other over TCP: frames of four octets of length, most significant first, an octet of
// type, and as many octets as the length says. Every wait has a deadline, every frame a limit.
//
//     client                                        server
//     kToken ──────────────────────────────────▶    until each side's establishment is complete
//                                   ◀────────────── kToken
//     kConfirmation, kViews ───────────────────▶    the MIC over all tokens (empty: the mechanism has none)
//                                   ◀────────────── kConfirmation, kViews
//     kMessage ────────────────────────────────▶    any number of them
//                                   ◀────────────── kMessage: the same text, protected by the server
//     kEnd ────────────────────────────────────▶    from either side at any time, with the reason
#ifndef QXNEGO_TOOLS_STREAM_H
#define QXNEGO_TOOLS_STREAM_H

#include "tools/failure.h"
#include "tools/sockets.h"

namespace tools {

enum class FrameType : unsigned char { kToken = 1, kConfirmation, kViews, kMessage, kEnd };

// The only octet of a kEnd frame. kRefused is all that a client hears which has not proved who it is.
enum class EndReason : unsigned char {
    kDone,
    kRefused,
    kForbidden,
    kNotTheSameTokens,
    kConfirmationRequired,
    kProtectionFailed
};

struct Limits {
    std::uint32_t frame = 1U << 18;    // bytes
    unsigned rounds = 16;              // calls of one side
    std::chrono::seconds logon{30};    // from the connection until the first message
    std::chrono::seconds silence{300}; // between messages
};

class Stream {
  public:
    Stream(Descriptor socket, const Limits &limits);

    void set_deadline(Clock::time_point deadline) { deadline_ = deadline; }

    // False when the peer has gone. Throws Failure (network) when the deadline has come.
    bool send(FrameType type, ByteView contents);
    void send_end(EndReason reason) noexcept; // the connection ends anyway: errors do not matter

    // The next frame, which must be of that type; nothing when the peer has ended, between two frames or by kDone.
    // Throws Failure: the class of the reason that a kEnd frame brings; protocol for a frame that is too large or of
    // another type; network for a silent peer and for a frame that is cut off.
    std::optional<Bytes> receive(FrameType type);

    Clock::time_point received() const { return received_; } // the last frame

  private:
    bool receive_all(std::span<unsigned char> bytes);

    Descriptor socket_;
    Limits limits_;
    Clock::time_point deadline_ = Clock::time_point::max();
    Clock::time_point received_ = Clock::now();
};

} // namespace tools

#endif
