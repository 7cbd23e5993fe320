#include "tools/descriptor.h"

#include <cerrno>
#include <cstring>
#include <string>

#include <sys/socket.h>
#include <unistd.h>

#include "tools/failure.h"

namespace tools {

void Descriptor::close() noexcept {
    if (number_ >= 0)
        ::close(number_);
    number_ = -1;
}

std::pair<Descriptor, Descriptor> socket_pair() {
    int ends[2] = {-1, -1};
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0)
        throw Failure(std::string("socketpair: ") + std::strerror(errno));
    return {Descriptor(ends[0]), Descriptor(ends[1])};
}

} // namespace tools
