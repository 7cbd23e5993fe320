#include "tools/connection/output.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <utility>

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tools {

namespace {

constexpr std::size_t kMostBytes = std::size_t{1} << 20;

// So much goes into a pipe that can be written to without waiting, and only so much.
constexpr std::size_t kAtOnce = PIPE_BUF;

ssize_t write_now(int descriptor, const char *bytes, std::size_t length) {
    const ssize_t sent = send(descriptor, bytes, length, MSG_DONTWAIT | MSG_NOSIGNAL);
    return sent < 0 && errno == ENOTSOCK ? write(descriptor, bytes, length) : sent;
}

} // namespace

// What poll says of a terminal is not how much it takes. Others may have the same open file, so that it is not the one
// to be made non-blocking; a file on a disk has a position, which another opening would not share.
Output::Output(int descriptor) : descriptor_(descriptor) {
    struct stat kind {};
    const bool is_writable = (fcntl(descriptor, F_GETFL) & O_ACCMODE) != O_RDONLY; // as it was given
    if (is_writable && fstat(descriptor, &kind) == 0 && (S_ISCHR(kind.st_mode) || S_ISFIFO(kind.st_mode)))
        own_ = Descriptor(open(("/proc/self/fd/" + std::to_string(descriptor)).c_str(),
                               O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
}

void Output::add(std::string lines) {
    if (failure_ != 0 || size_ + lines.size() > kMostBytes) {
        ++dropped_;
        return;
    }
    size_ += lines.size();
    queue_.push_back(std::move(lines));
}

void Output::write_some() {
    if (queue_.empty())
        return;
    const std::string &first = queue_.front();
    const ssize_t done = write_now(descriptor(), first.data() + written_, std::min(first.size() - written_, kAtOnce));
    if (done < 0 && (errno == EAGAIN || errno == EINTR))
        return;
    if (done < 0) { // it will not be better with the next
        failure_ = errno;
        dropped_ += queue_.size();
        queue_.clear();
        size_ = written_ = 0;
        return;
    }
    written_ += static_cast<std::size_t>(done);
    if (written_ != first.size())
        return;
    size_ -= written_;
    written_ = 0;
    queue_.pop_front();
}

unsigned long Output::take_dropped() {
    return std::exchange(dropped_, 0);
}

} // namespace tools
