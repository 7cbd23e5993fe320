// Configures the framework from a text, without a file on disk.
#ifndef QXNEGO_FUZZ_CONFIGURED_H
#define QXNEGO_FUZZ_CONFIGURED_H

#include <sys/mman.h>
#include <unistd.h>

#include <string>
#include <string_view>

#include "fuzz/input.h"
#include "qxgss/gssp.h"

namespace fuzz {

// The status of qxgss_configure, its message, and the name of the file that it read.
struct Configured {
    OM_uint32 major = 0;
    OM_uint32 minor = 0;
    std::string message;
    std::string path;

    explicit Configured(std::string_view text) {
        static const int file = memfd_create("configuration", 0);
        require(ftruncate(file, 0) == 0 &&
                    pwrite(file, text.data(), text.size(), 0) == static_cast<ssize_t>(text.size()),
                "the configuration is written");
        path = "/proc/self/fd/" + std::to_string(file);
        qxgss_buffer_desc said{};
        major = qxgss_configure(&minor, QXGSS_SERVER, path.c_str(), &said);
        message.assign(static_cast<const char *>(said.value), said.length);
        gssp_release_buffer(nullptr, &said);
    }
    Configured(const Configured &) = delete;
    Configured &operator=(const Configured &) = delete;
    ~Configured() { qxgss_shutdown(nullptr); }
};

} // namespace fuzz

#endif
