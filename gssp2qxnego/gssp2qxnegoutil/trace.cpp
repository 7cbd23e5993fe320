// The lines and their way out. A line is of bounded size and goes out with one write, so that those of several
// processes do not mix. The destination is opened for each: a program may close what it has not opened, and then open
// something else under that number.
#include "gssp2qxnego/gssp2qxnegoutil/trace.h"

#include <atomic>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <climits>
#include <csignal>
#include <cstdio>
#include <ctime>
#include <fcntl.h>
#include <pthread.h>
#include <string_view>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include "gssp2qxnego/gssp2qxnegoutil/mechanisms.h"
#include "gssp2qxnego/gssp2qxnegoutil/words.h"

namespace qxnego {
namespace {

// ---- Where to ------------------------------------------------------------------------------------------------------

// A copy: the environment belongs to the program. Empty without the variable, and in a set-uid program.
struct Destination {
    char name[PATH_MAX] = "";
    Destination() {
        const char *const value = secure_getenv("QXNEGO_TRACE");
        if (value != nullptr && std::strlen(value) < sizeof name)
            std::strcpy(name, value);
    }
    bool is_stderr() const { return std::string_view(name) == "stderr"; }
};
const Destination destination;

// Keeps from this thread what writing could send it, and what the program does with that: a pipe that nobody reads, a
// file that may not grow, a cancellation.
class Undisturbed {
  public:
    Undisturbed() {
        sigemptyset(&signals_);
        sigaddset(&signals_, SIGPIPE);
        sigaddset(&signals_, SIGXFSZ);
        pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &cancelling_);
        pthread_sigmask(SIG_BLOCK, &signals_, &before_);
        sigpending(&pending_);
    }
    ~Undisturbed() {
        for (const int signal : {SIGPIPE, SIGXFSZ}) // one that was pending before is the program's
            if (sigismember(&pending_, signal) != 0)
                sigdelset(&signals_, signal);
        constexpr std::timespec kNow{};
        while (sigtimedwait(&signals_, nullptr, &kNow) > 0) {
        }
        pthread_sigmask(SIG_SETMASK, &before_, nullptr);
        pthread_setcancelstate(cancelling_, nullptr);
        errno = error_;
    }
    Undisturbed(const Undisturbed &) = delete;
    Undisturbed &operator=(const Undisturbed &) = delete;

  private:
    int error_ = errno;
    int cancelling_ = 0;
    sigset_t signals_{}, before_{}, pending_{};
};

// Opens, writes if it is of the wanted kind, and closes.
void write_opened(const char *path, int flags, bool must_be_file, std::string_view line) {
    const int descriptor = open(path, flags | O_WRONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY, S_IRUSR | S_IWUSR);
    if (descriptor < 0)
        return;
    struct stat kind {};
    if (!must_be_file || (fstat(descriptor, &kind) == 0 && S_ISREG(kind.st_mode)))
        static_cast<void>(!write(descriptor, line.data(), line.size()));
    close(descriptor);
}

// The error output as it is now. Others share it, so that it is not the one to be made non-blocking; a file has a
// position there that another opening would not share. A network connection never gets a line: it may be a client's.
void write_to_stderr(std::string_view line) {
    struct stat kind {};
    if (fstat(STDERR_FILENO, &kind) != 0)
        return;
    int domain = 0;
    socklen_t size = sizeof domain;
    if (S_ISREG(kind.st_mode))
        static_cast<void>(!write(STDERR_FILENO, line.data(), line.size()));
    else if (S_ISFIFO(kind.st_mode) || S_ISCHR(kind.st_mode))
        write_opened("/proc/self/fd/2", 0, false, line);
    else if (getsockopt(STDERR_FILENO, SOL_SOCKET, SO_DOMAIN, &domain, &size) == 0 && domain == AF_UNIX)
        send(STDERR_FILENO, line.data(), line.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
}

void send_out(std::string_view line) {
    const Undisturbed undisturbed;
    if (destination.is_stderr())
        write_to_stderr(line);
    else
        write_opened(destination.name, O_APPEND | O_CREAT | O_NOFOLLOW, true, line);
}

// ---- What ----------------------------------------------------------------------------------------------------------

// All of them together stay within a line.
constexpr std::size_t kMostOfName = 256, kMostOfText = 512, kMostOfStatus = 1024;
constexpr std::size_t kMostOfLine = 3072;
static_assert(kMostOfLine <= PIPE_BUF); // which a pipe takes in one piece

class Line {
  public:
    void add(const char *label, std::string_view value) {
        put(label);
        put(value);
    }

    template <typename Number> void add_number(const char *label, Number value, int base = 10) {
        char digits[24];
        const char *const end = std::to_chars(digits, digits + sizeof digits, value, base).ptr;
        add(label, {digits, static_cast<std::size_t>(end - digits)});
    }

    // In quotation marks, in which every byte that is not plain ASCII stands as \xNN: nothing in it looks like what is
    // around it, or does anything to a terminal.
    void add_text(const char *label, std::string_view text, std::size_t most) {
        put(label);
        put("\"");
        const std::size_t end = used_ + most;
        for (const char c : text) {
            const auto byte = static_cast<unsigned char>(c);
            if (used_ + sizeof "\\xNN..." > end) {
                put("...");
                break;
            }
            const char escaped[] = {'\\', 'x', kDigits[byte >> 4], kDigits[byte & 15]};
            const bool is_plain = byte >= 0x20 && byte < 0x7F && c != '"' && c != '\\';
            put(is_plain ? std::string_view(&c, 1) : std::string_view(escaped, sizeof escaped));
        }
        put("\"");
    }

    std::string_view finish() {
        put("\n");
        return {bytes_, used_};
    }

  private:
    static constexpr char kDigits[] = "0123456789abcdef";

    void put(std::string_view text) { used_ += text.copy(bytes_ + used_, sizeof bytes_ - used_); }

    std::size_t used_ = 0;
    char bytes_[kMostOfLine];
};

// Without the C library's calendar, which takes a lock that another thread may have held when this process was forked.
void add_time(Line &line) {
    using namespace std::chrono;
    const auto now = floor<milliseconds>(system_clock::now());
    const auto day = floor<days>(now);
    const year_month_day date(day);
    const hh_mm_ss time(now - day);
    char text[48];
    std::snprintf(text, sizeof text, "%04d-%02u-%02uT%02d:%02d:%02d.%03dZ", static_cast<int>(date.year()),
                  static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()),
                  static_cast<int>(time.hours().count()), static_cast<int>(time.minutes().count()),
                  static_cast<int>(time.seconds().count()), static_cast<int>(time.subseconds().count()));
    line.add("", text);
}

void add_status(Line &line, Status status) {
    line.add_number(" major=0x", status.major, 16);
    line.add_number(" minor=0x", status.minor, 16);
}

template <typename Enumeration> void add_word(Line &line, const char *label, Enumeration value) {
    const std::string_view name = word(value);
    if (name.empty())
        return line.add_number(label, static_cast<OM_uint32>(value));
    line.add_text(label, name, kMostOfName);
}

// The number of the context, which it gets with its first line.
void begin(Line &line, NegLog_desc &log, OM_uint32 is_initiator, OM_uint32 token_number) {
    static std::atomic<OM_uint32> last;
    if (log.TraceNumber == 0)
        log.TraceNumber = ++last;
    add_time(line);
    line.add_number(" pid=", static_cast<long>(getpid()));
    line.add_number(" context=", log.TraceNumber);
    line.add(" role=", is_initiator != 0 ? "client" : "server");
    line.add_number(" call=", OM_uint64{token_number} + 1);
}

void add_mechanism(Line &line, const NegLogRecord &record) {
    const MechInfo_t *mechanism = registered(record.MechIndex);
    if (mechanism != nullptr && mechanism->pszMechName != nullptr)
        return line.add_text(" mechanism=", mechanism->pszMechName, kMostOfName);
    qxgss_OID_desc oid = record.MechOid;
    const Heap<char> octets(QXNEGO_INT_oid_to_string(&oid));
    line.add_text(" oid=", octets != nullptr ? octets.get() : "?", kMostOfName);
}

void add_entry(Line &line, const NegLogRecord &record) {
    add_mechanism(line, record);
    add_word(line, " state=", record.MechState);
    add_word(line, " reason=", record.MechReason);
    line.add(" established=", record.IsCtxEstablished != 0 ? "yes" : "no");
    if (record.MechReason != NEG_MECH_REASON_GSSAPI_ERROR)
        return;
    add_status(line, {record.GssMajorStatus, record.GssMinorStatus});
    const qxgss_buffer_desc &text = record.GssMinorStatusText;
    if (present(text))
        line.add_text(" status=", {static_cast<const char *>(text.value), text.length}, kMostOfStatus);
}

void add_negotiation(Line &line, OM_uint32 is_policy_applied, NegState_et state, NegState_et peer) {
    line.add(" policy=", is_policy_applied != 0 ? "applied" : "no");
    add_word(line, " negotiation=", state);
    add_word(line, " peer=", peer);
}

std::string_view event_of(Status outcome) {
    if (outcome.failed())
        return "the call fails";
    return (outcome.major & GSS_S_CONTINUE_NEEDED) != 0 ? "the call goes on" : "the call is complete";
}

} // namespace

const bool is_tracing = destination.name[0] != '\0';

void trace_record(const NegLogRecord &record, NegLog_desc &log) {
    Line line;
    begin(line, log, record.IsInitiator, record.TokenNum);
    if (record.pszLogString != nullptr)
        line.add_text(" event=", record.pszLogString, kMostOfText);
    if (record.MechOid.elements != nullptr)
        add_entry(line, record);
    add_negotiation(line, record.IsPolicyApplied, record.NegState, record.NegStateFromPeer);
    line.add_number(" ms=", record.ElapsedTime);
    send_out(line.finish());
}

void trace_outcome(Status outcome, NegContext_desc &negotiation) {
    Line line;
    begin(line, negotiation.NegLog, negotiation.IsInitiator, negotiation.TokenNum);
    line.add_text(" event=", event_of(outcome), kMostOfText);
    add_status(line, outcome);
    const std::string_view own = qxnegoerrtostr(outcome.minor);
    line.add_text(" status=", own != "?" ? own : qxgsserrtostr(outcome.minor), kMostOfStatus);
    add_negotiation(line, negotiation.IsPolicyApplied, negotiation.NegState, negotiation.NegStateFromPeer);
    line.add_number(" ms=", QXNEGO_INT_GetElapsedTime(negotiation.NegLog.BaseTime));
    send_out(line.finish());
}

} // namespace qxnego
