// A conversation as messages: an octet of type and what belongs to it. Which message may come when is decided here,
// what is in it elsewhere.
#ifndef QXGSS_SESSION_SESSION_H
#define QXGSS_SESSION_SESSION_H

#include <chrono>
#include <cstdint>

#include "session/ending.h"
#include "session/negotiation.h"

namespace session {

enum class MessageType : unsigned char {
    kToken = 1,
    kConfirmation, // four octets of length, a MIC as long as they say, then the sender's views, protected if that can
                   // be
    kText,         // protected: an octet of kind, eight octets of number, a text
    kEnd           // an octet: why
};

// What is protected says what it is, so that nobody in between makes a text of an end or an end of a text, and which of
// its sender's texts, from 0 on: not every mechanism notices one that comes twice, and some do not say whether they do.
enum class TextKind : unsigned char { kText = 1, kEnd };

// The operations of the public header. What throws anything but OutOfOrder has ended the session.
class Session {
  public:
    explicit Session(const qxgss_session_options_desc &options);

    Negotiation &negotiation() { return negotiation_; }

    bool step(std::string_view input, common::Buffer &output); // whether the session is open
    common::Buffer wrap(std::string_view text);
    common::Buffer unwrap(std::string_view message); // empty: the peer's end mark
    common::Buffer end();
    void abandon(qxgss_session_failure_et kind, const char *line);
    common::Buffer parting_message();

    OM_uint32 delay() const;
    OM_uint32 time_left() const;
    void describe(qxgss_session_facts_desc &facts);
    const Verdict *verdict(OM_uint32 number) const; // of the last description
    common::Buffer properties();

  private:
    using Clock = std::chrono::steady_clock;
    enum class Stage {
        kNegotiating,
        kEstablished, // here; the client waits to hear the same of the server, the server for the confirmation
        kConfirming,  // the client, which has confirmed
        kOpen,
        kEnded,
        kFailed
    };

    std::string handle(std::string_view input);
    std::string negotiate(std::string_view token);
    void check_protection() const;
    std::string confirm();
    void check_confirmation(std::string_view contents);
    std::string_view contents_of(std::string_view message, MessageType wanted) const;
    void require_open() const;
    common::Buffer wrapped(TextKind kind, std::string_view text);
    std::string_view numbered(std::string_view text);
    template <typename Operation> auto guarded(Operation operation);
    void fail(qxgss_session_failure_et kind, const char *line) noexcept;
    void say_causes() noexcept;
    static OM_uint32 milliseconds_until(Clock::time_point moment);

    const qxgss_session_options_desc options_;
    Negotiation negotiation_;
    Stage stage_ = Stage::kNegotiating;
    bool is_begun_ = false;
    OM_uint32 tokens_ = 0; // of the peer
    std::uint64_t texts_sent_ = 0, texts_received_ = 0;
    Clock::time_point created_ = Clock::now(), received_ = created_;
    OM_uint32 pause_ = 0; // milliseconds from the last input to the output
    qxgss_session_confirmation_et confirmation_ = QXGSS_SESSION_NOT_CONFIRMED;
    qxgss_session_failure_et failure_ = QXGSS_SESSION_NO_FAILURE;
    std::string failure_line_;
    std::optional<EndReason> parting_; // what is left to tell the peer after a failure
    Views other_;
    std::vector<Verdict> verdicts_;
};

} // namespace session

#endif
