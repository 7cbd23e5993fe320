// A file descriptor that is closed when its owner goes.
#ifndef QXNEGO_TOOLS_DESCRIPTOR_H
#define QXNEGO_TOOLS_DESCRIPTOR_H

#include <utility>

#include <unistd.h>

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
    void close() noexcept {
        if (number_ >= 0)
            ::close(number_);
        number_ = -1;
    }

  private:
    int number_ = -1;
};

} // namespace tools

#endif
