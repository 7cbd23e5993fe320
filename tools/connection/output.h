// An output that perhaps nobody reads: what is written waits in a queue of limited size and never holds anything up.
#ifndef QXNEGO_TOOLS_CONNECTION_OUTPUT_H
#define QXNEGO_TOOLS_CONNECTION_OUTPUT_H

#include <deque>
#include <string>

namespace tools {

class Output {
  public:
    explicit Output(int descriptor) : descriptor_(descriptor) {}

    // Queues lines, each with its line end; without room they are dropped and counted.
    void add(std::string lines);

    bool is_waiting() const { return !queue_.empty(); }
    int descriptor() const { return descriptor_; }

    // To be called when the descriptor can be written to; writes what can be written at once.
    void write_some();

    // How many entries were dropped since this was asked last.
    unsigned long take_dropped();

    // Whether an entry was lost because the output cannot be written.
    bool has_failed() const { return has_failed_; }

  private:
    int descriptor_;
    std::deque<std::string> queue_;
    std::size_t size_ = 0;    // bytes in the queue
    std::size_t written_ = 0; // of the first entry
    unsigned long dropped_ = 0;
    bool has_failed_ = false;
};

} // namespace tools

#endif
