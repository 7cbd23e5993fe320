#include "session/session.h"

#include "session/failure.h"

namespace session {

namespace {

// Every message of the server leaves this long after the client's, so that its time says nothing about the user.
constexpr OM_uint32 kPace = 20;

[[noreturn]] void refuse_message(const char *line) {
    throw Failure(QXGSS_SESSION_FAILURE_PROTOCOL, line, GSS_S_DEFECTIVE_TOKEN);
}

std::string message_of(MessageType type, std::string_view contents) {
    std::string message(1, static_cast<char>(type));
    return message += contents;
}

std::string end_of(EndReason reason) {
    return {static_cast<char>(MessageType::kEnd), static_cast<char>(reason)};
}

std::string text_of(TextKind kind, std::string_view text) {
    std::string out(1, static_cast<char>(kind));
    return out += text;
}

common::Buffer to_buffer(std::string_view message) {
    common::Buffer copy;
    qxgss_buffer_desc source = common::view(message);
    if (!message.empty() && common::failed(gssp_duplicate_buffer(nullptr, &source, copy.out())))
        throw std::bad_alloc();
    return copy;
}

// A field behind its length, at the front of the contents.
std::string_view take_field(std::string_view &contents) {
    constexpr std::size_t kHead = 4;
    std::size_t length = 0;
    for (const char octet : contents.substr(0, kHead))
        length = length << 8 | static_cast<unsigned char>(octet);
    if (contents.size() < kHead || contents.size() - kHead < length)
        refuse_message("the peer's confirmation is cut");
    const std::string_view field = contents.substr(kHead, length);
    contents.remove_prefix(kHead + length);
    return field;
}

} // namespace

Session::Session(const qxgss_session_options_desc &options) : options_(options), negotiation_(options) {}

// ---- Failing -------------------------------------------------------------------------------------------------------

void Session::fail(qxgss_session_failure_et kind, const char *line) noexcept {
    const bool was_established = negotiation_.is_established();
    parting_ = stage_ == Stage::kNegotiating || stage_ == Stage::kFailed ? EndReason::kRefused
                                                                         : reason_of(kind, confirmation_);
    pause_ = negotiation_.is_client() ? 0 : kPace;
    if (!was_established && negotiation_.is_attempt())
        pause_ = std::max(pause_, options_.RefusalTime);
    stage_ = Stage::kFailed;
    failure_ = kind;
    negotiation_.close();
    try {
        failure_line_ = line;
    } catch (const std::bad_alloc &) {
        failure_line_.clear(); // the class has to do
    }
}

// Runs an operation; whatever goes wrong in it is the end of the session.
template <typename Operation> auto Session::guarded(Operation operation) {
    try {
        return operation();
    } catch (const PeerEnded &end) {
        fail(end.kind, end.what());
        parting_.reset();
        if (negotiation_.is_client())
            say_causes();
        throw;
    } catch (const Failure &failure) {
        fail(failure.kind, failure.what());
        throw;
    } catch (const std::bad_alloc &) {
        fail(QXGSS_SESSION_FAILURE_RESOURCES, "there is not enough memory");
        throw;
    } catch (...) {
        fail(QXGSS_SESSION_FAILURE_RESOURCES, "a library that was called has failed");
        throw;
    }
}

// A server that refuses a logon says no more: what this side lost is the likely reason.
void Session::say_causes() noexcept {
    try {
        if (failure_ == QXGSS_SESSION_FAILURE_NEGOTIATION)
            failure_line_ = negotiation_.causes() + failure_line_;
    } catch (const std::bad_alloc &) { // the line as it is has to do
    }
}

void Session::abandon(qxgss_session_failure_et kind, const char *line) {
    if (stage_ == Stage::kEnded || stage_ == Stage::kFailed)
        throw OutOfOrder{};
    fail(kind, line);
    parting_.reset();
}

// ---- Until it is open ----------------------------------------------------------------------------------------------

bool Session::step(std::string_view input, common::Buffer &output) {
    if (stage_ == Stage::kOpen || stage_ == Stage::kEnded || stage_ == Stage::kFailed)
        throw OutOfOrder{};
    received_ = Clock::now();
    guarded([&] {
        if (time_left() == 0)
            throw Failure(QXGSS_SESSION_FAILURE_TIME, "the peer took too long to log on");
        if (input.size() > options_.MaxMessage)
            refuse_message("the peer sent more than a message may have");
        output = to_buffer(handle(input));
    });
    return stage_ == Stage::kOpen;
}

std::string Session::handle(std::string_view input) {
    const bool is_client = negotiation_.is_client();
    if (stage_ == Stage::kNegotiating)
        return negotiate(is_client && !is_begun_ ? std::string_view() : contents_of(input, MessageType::kToken));
    if (stage_ == Stage::kEstablished && is_client) {
        if (!contents_of(input, MessageType::kToken).empty())
            refuse_message("the peer sent a token after the last one");
        stage_ = Stage::kConfirming;
        return confirm();
    }
    check_confirmation(contents_of(input, MessageType::kConfirmation));
    stage_ = Stage::kOpen;
    return is_client ? std::string() : confirm();
}

std::string Session::negotiate(std::string_view token) {
    if ((is_begun_ || !negotiation_.is_client()) && ++tokens_ > options_.MaxRounds)
        refuse_message("the negotiation takes more rounds than it may");
    is_begun_ = true;
    const common::Buffer answer = negotiation_.step(token);
    pause_ = negotiation_.is_client() ? 0 : kPace;
    if (!negotiation_.is_established())
        return message_of(MessageType::kToken, answer.bytes());
    const bool confirms_now = negotiation_.is_client() && answer.empty(); // the server is established too
    stage_ = confirms_now ? Stage::kConfirming : Stage::kEstablished;
    return confirms_now ? confirm() : message_of(MessageType::kToken, answer.bytes());
}

std::string Session::confirm() {
    const std::string mic = negotiation_.own_mic();
    std::string views = encode_views(negotiation_.views());
    if (negotiation_.is_protecting())
        views = negotiation_.wrap(views).bytes();
    return message_of(MessageType::kConfirmation, octets_of(mic.size()) + mic + views);
}

// What the client says of itself is read once it has proved that it is the one that negotiated.
void Session::check_confirmation(std::string_view contents) {
    const std::string_view mic = take_field(contents);
    confirmation_ = QXGSS_SESSION_MISMATCH;
    negotiation_.check_mic(mic);
    confirmation_ = negotiation_.has_mics() ? QXGSS_SESSION_CONFIRMED : QXGSS_SESSION_UNCONFIRMED;
    if (negotiation_.is_protecting())
        other_ = decode_views(negotiation_.unwrap(contents).bytes());
    else
        other_ = decode_views(contents);
    if (!negotiation_.is_client())
        negotiation_.check_policy();
}

std::string_view Session::contents_of(std::string_view message, MessageType wanted) const {
    if (message.empty())
        refuse_message("the peer sent an empty message");
    const auto type = static_cast<MessageType>(message.front());
    message.remove_prefix(1);
    if (type == MessageType::kEnd)
        throw_end(message, negotiation_.is_client());
    if (type < MessageType::kToken || type > MessageType::kEnd)
        refuse_message("the peer speaks something else");
    if (type != wanted)
        refuse_message("the peer sent a message out of order");
    return message;
}

// ---- Messages ------------------------------------------------------------------------------------------------------

void Session::require_open() const {
    if (stage_ != Stage::kOpen)
        throw OutOfOrder{};
    if (!negotiation_.is_protecting())
        throw OutOfOrder{GSS_S_UNAVAILABLE, GSSP_E_FUNCTION_UNAVAILABLE};
}

common::Buffer Session::wrapped(TextKind kind, std::string_view text) {
    return to_buffer(message_of(MessageType::kText, negotiation_.wrap(text_of(kind, text)).bytes()));
}

common::Buffer Session::wrap(std::string_view text) {
    require_open();
    if (text.empty())
        throw OutOfOrder{GSS_S_FAILURE, GSSP_E_INVALID_ARGUMENT};
    return guarded([&] { return wrapped(TextKind::kText, text); });
}

common::Buffer Session::unwrap(std::string_view message) {
    if (stage_ != Stage::kOpen)
        throw OutOfOrder{};
    return guarded([&] {
        if (message.size() > options_.MaxMessage)
            refuse_message("the peer sent more than a message may have");
        if (!negotiation_.is_protecting() && message == end_of(EndReason::kDone)) {
            stage_ = Stage::kEnded;
            return common::Buffer();
        }
        const std::string_view contents = contents_of(message, MessageType::kText);
        if (!negotiation_.is_protecting())
            refuse_message("the peer sent a text without protection");
        const common::Buffer unwrapped = negotiation_.unwrap(contents);
        const std::string_view text = unwrapped.bytes();
        if (text == text_of(TextKind::kEnd, {}))
            stage_ = Stage::kEnded;
        else if (text.size() < 2 || text.front() != static_cast<char>(TextKind::kText))
            refuse_message("the peer sent a text that is none");
        return to_buffer(text.substr(1));
    });
}

common::Buffer Session::end() {
    if (stage_ == Stage::kFailed)
        return parting_message();
    if (stage_ != Stage::kOpen)
        throw OutOfOrder{};
    return guarded([&] {
        common::Buffer message =
            negotiation_.is_protecting() ? wrapped(TextKind::kEnd, {}) : to_buffer(end_of(EndReason::kDone));
        stage_ = Stage::kEnded;
        return message;
    });
}

// What a session that has failed has left to say, once.
common::Buffer Session::parting_message() {
    if (!parting_)
        throw OutOfOrder{};
    const EndReason reason = *parting_;
    parting_.reset();
    return to_buffer(end_of(reason));
}

// ---- What is known -------------------------------------------------------------------------------------------------

OM_uint32 Session::delay() const {
    return milliseconds_until(received_ + std::chrono::milliseconds(pause_));
}

OM_uint32 Session::time_left() const {
    if (stage_ == Stage::kOpen || stage_ == Stage::kEnded || stage_ == Stage::kFailed)
        return GSS_C_INDEFINITE;
    return milliseconds_until(created_ + std::chrono::milliseconds(options_.LogonTime));
}

OM_uint32 Session::milliseconds_until(Clock::time_point moment) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(moment - Clock::now()).count();
    return left > 0 ? static_cast<OM_uint32>(left) : 0;
}

void Session::describe(qxgss_session_facts_desc &facts) {
    constexpr qxgss_session_state_et kStates[] = {QXGSS_SESSION_NEGOTIATING, QXGSS_SESSION_NEGOTIATING,
                                                  QXGSS_SESSION_NEGOTIATING, QXGSS_SESSION_OPEN,
                                                  QXGSS_SESSION_ENDED,       QXGSS_SESSION_FAILED};
    verdicts_ = join(negotiation_.views(), other_, negotiation_.is_client());
    facts = {};
    negotiation_.describe(facts);
    facts.State = kStates[static_cast<std::size_t>(stage_)];
    facts.Failure = failure_;
    facts.pszFailure = failure_line_.c_str();
    facts.Confirmation = confirmation_;
    facts.VerdictCount = static_cast<OM_uint32>(verdicts_.size());
}

const Verdict *Session::verdict(OM_uint32 number) const {
    return number < verdicts_.size() ? &verdicts_[number] : nullptr;
}

common::Buffer Session::properties() {
    return to_buffer(negotiation_.properties());
}

} // namespace session
