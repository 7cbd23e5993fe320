// The library holds no descriptor, which the program could close and have again as something else: a file is opened for
// each line. Nothing is waited for, no signal arises, and neither errno nor the heap is touched.
#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <ctime>
#include <fcntl.h>
#include <pthread.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include "gssp2qxnego/gssp2qxnegoutil/mechanisms.h"
#include "gssp2qxnego/gssp2qxnegoutil/trace.h"
#include "gssp2qxnego/gssp2qxnegoutil/words.h"

namespace qxnego {
namespace {

constexpr std::size_t kMostOfText = 1500; // bytes of one text in a line
static_assert(kTraceLine <= PIPE_BUF);

// ---- Where lines go ------------------------------------------------------------------------------------------------

char target[PATH_MAX]; // a copy: the program may change its environment

bool read_environment() {
    const char *const value = secure_getenv("QXNEGO_TRACE");
    const std::string_view name = value != nullptr ? value : "";
    if (name.empty() || name.size() >= sizeof target)
        return false;
    name.copy(target, name.size());
    return true;
}

// Signals that a write can send to the thread that makes it: of a pipe without reader, of a file at its limit, and of a
// terminal that belongs to somebody else in the foreground. None of them reaches the program.
class Unnoticed {
  public:
    Unnoticed() {
        pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &cancel_state_);
        sigset_t pending;
        sigpending(&pending);
        sigemptyset(&blocked_);
        sigemptyset(&ours_);
        for (const int signal : {SIGPIPE, SIGXFSZ, SIGTTOU}) {
            sigaddset(&blocked_, signal);
            if (sigismember(&pending, signal) == 0)
                sigaddset(&ours_, signal);
        }
        pthread_sigmask(SIG_BLOCK, &blocked_, &before_);
    }
    Unnoticed(const Unnoticed &) = delete;
    Unnoticed &operator=(const Unnoticed &) = delete;
    ~Unnoticed() {
        constexpr std::timespec kNow{};
        while (sigtimedwait(&ours_, nullptr, &kNow) > 0) {
        }
        pthread_sigmask(SIG_SETMASK, &before_, nullptr);
        pthread_setcancelstate(cancel_state_, nullptr);
        errno = error_;
    }

  private:
    int error_ = errno;
    int cancel_state_ = 0;
    sigset_t blocked_, ours_, before_;
};

// A line that is cut has no remedy; the next one begins where it stopped.
void write_once(int file, const char *line, std::size_t length) {
    static_cast<void>(!write(file, line, length));
}

// A file that is none is not written to: whoever reads a FIFO or a device could stop the program.
void write_to_file(const char *line, std::size_t length) {
    const int file = open(target, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY, 0600);
    if (file < 0)
        return;
    struct stat status {};
    if (fstat(file, &status) == 0 && S_ISREG(status.st_mode))
        write_once(file, line, length);
    close(file);
}

// A pipe or terminal that nobody reads blocks its writer. Its mode is the program's, so that it is opened once more to
// be written to without waiting; a socket has a call for that, and a file never waits. A network connection gets no
// line: the error output of a program that inetd has started is its client.
void write_to_stderr(const char *line, std::size_t length) {
    struct stat status {};
    if (fstat(STDERR_FILENO, &status) != 0)
        return;
    if (S_ISREG(status.st_mode))
        return write_once(STDERR_FILENO, line, length);
    if (S_ISSOCK(status.st_mode)) {
        int domain = 0;
        socklen_t size = sizeof domain;
        if (getsockopt(STDERR_FILENO, SOL_SOCKET, SO_DOMAIN, &domain, &size) == 0 && domain == AF_UNIX)
            send(STDERR_FILENO, line, length, MSG_DONTWAIT | MSG_NOSIGNAL);
        return;
    }
    const int again = open("/proc/self/fd/2", O_WRONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    if (again < 0)
        return;
    write_once(again, line, length);
    close(again);
}

// ---- A line --------------------------------------------------------------------------------------------------------

class Line {
  public:
    explicit Line(char *area) : begin_(area), at_(area) {}

    // Ends the line, for which there is always room.
    std::size_t end() {
        *at_++ = '\n';
        return static_cast<std::size_t>(at_ - begin_);
    }

    void put(std::string_view text) { at_ += text.copy(at_, std::min(text.size(), room())); }
    template <typename... Numbers> void print(const char *format, Numbers... numbers) {
        char text[128];
        const int length = std::snprintf(text, sizeof text, format, numbers...);
        put({text, std::min(static_cast<std::size_t>(std::max(length, 0)), sizeof text - 1)});
    }
    void quote(std::string_view text) {
        const char *const limit = at_ + std::min(kMostOfText, room());
        put("\"");
        for (const char c : text) {
            if (limit - at_ < 8) { // one more character, and what stands for the rest
                put("...");
                break;
            }
            put_character(c);
        }
        put("\"");
    }

  private:
    std::size_t room() const { return static_cast<std::size_t>(begin_ + kTraceLine - 1 - at_); }

    void put_character(char c) {
        constexpr std::string_view kDigits = "0123456789abcdef";
        const auto byte = static_cast<unsigned char>(c);
        if (byte >= 0x20 && byte < 0x7F && c != '"' && c != '\\')
            return put({&c, 1});
        const char escape[] = {'\\', 'x', kDigits[byte >> 4], kDigits[byte & 0xF]};
        put({escape, sizeof escape});
    }

    char *begin_;
    char *at_;
};

void put_time(Line &line, OM_uint64 milliseconds) {
    const auto seconds = static_cast<std::time_t>(milliseconds / 1000);
    std::tm parts{};
    char text[64] = "";
    if (gmtime_r(&seconds, &parts) != nullptr)
        text[std::strftime(text, sizeof text, "%FT%T", &parts)] = '\0';
    line.put(text);
    line.print(".%03uZ", static_cast<unsigned>(milliseconds % 1000));
}

void put_oid(Line &line, const qxgss_OID_desc &oid) {
    constexpr OM_uint32 kMostOctets = 40;
    const auto *const octets = static_cast<const unsigned char *>(oid.elements);
    for (OM_uint32 i = 0; i != std::min(oid.length, kMostOctets); ++i)
        line.print(i != 0 ? ".%02x" : "%02x", unsigned{octets[i]});
}

template <typename Enumeration> void put_word(Line &line, std::string_view label, Enumeration value) {
    line.put(label);
    if (word(value).empty())
        return line.print("%u", static_cast<unsigned>(value));
    line.quote(word(value));
}

void put_mechanism(Line &line, const NegLogRecord &record) {
    const MechInfo_t *const mechanism = registered(record.MechIndex);
    line.put(" mechanism=");
    if (mechanism != nullptr && mechanism->pszMechName != nullptr)
        line.quote(mechanism->pszMechName);
    else
        put_oid(line, record.MechOid);
    put_word(line, " state=", record.MechState);
    put_word(line, " reason=", record.MechReason);
    if (record.MechReason == NEG_MECH_REASON_GSSAPI_ERROR)
        line.print(" major=%08X minor=%08X", record.GssMajorStatus, record.GssMinorStatus);
    if (present(record.GssMinorStatusText)) {
        line.put(" status=");
        line.quote({static_cast<const char *>(record.GssMinorStatusText.value), record.GssMinorStatusText.length});
    }
    line.print(" established=%s", record.IsCtxEstablished != 0 ? "yes" : "no");
}

void put_beginning(Line &line, OM_uint64 elapsed, bool is_client, OM_uint32 calls, const NegContext_desc &negotiation) {
    put_time(line, negotiation.NegLog.BaseTime + elapsed);
    line.print(" pid=%ld context=%u role=%s call=%u event=", static_cast<long>(getpid()), negotiation.TraceNumber,
               is_client ? "client" : "server", calls + 1);
}

std::string_view event_of(Status outcome) {
    if (outcome.failed())
        return "the call fails";
    return (outcome.major & GSS_S_CONTINUE_NEEDED) != 0 ? "the call goes on" : "the call is complete";
}

std::size_t write_outcome_line(char *area, Status outcome, const NegContext_desc &negotiation) {
    Line line(area);
    put_beginning(line, QXNEGO_INT_GetElapsedTime(negotiation.NegLog.BaseTime), negotiation.IsInitiator != 0,
                  negotiation.TokenNum, negotiation);
    line.quote(event_of(outcome));
    line.print(" major=%08X minor=%08X status=", outcome.major, outcome.minor);
    const std::string_view own = qxnegoerrtostr(outcome.minor);
    line.quote(own != "?" ? own : qxgsserrtostr(outcome.minor));
    return line.end();
}

void number(NegContext_desc &negotiation) {
    static std::atomic<OM_uint32> last{0};
    if (negotiation.TraceNumber == 0)
        negotiation.TraceNumber = ++last;
}

void send_out(const char *line, std::size_t length) {
    const Unnoticed unnoticed;
    std::strcmp(target, "stderr") == 0 ? write_to_stderr(line, length) : write_to_file(line, length);
}

} // namespace

const bool is_tracing = read_environment();

std::size_t write_trace_line(char *area, const NegLogRecord &record, const NegContext_desc &negotiation) {
    Line line(area);
    put_beginning(line, record.ElapsedTime, record.IsInitiator != 0, record.TokenNum, negotiation);
    line.quote(record.pszLogString != nullptr ? record.pszLogString : "");
    if (record.MechOid.elements != nullptr)
        put_mechanism(line, record);
    line.print(" policy-applied=%s", record.IsPolicyApplied != 0 ? "yes" : "no");
    put_word(line, " negotiation=", record.NegState);
    put_word(line, " peer=", record.NegStateFromPeer);
    return line.end();
}

[[gnu::cold]] void trace(const NegLogRecord &record, NegContext_desc &negotiation) {
    number(negotiation);
    char line[kTraceLine];
    send_out(line, write_trace_line(line, record, negotiation));
}

[[gnu::cold]] void trace(Status outcome, NegContext_desc &negotiation) {
    number(negotiation);
    char line[kTraceLine];
    send_out(line, write_outcome_line(line, outcome, negotiation));
}

} // namespace qxnego
