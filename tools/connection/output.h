// An output that perhaps nobody reads: what is written waits in a queue of limited size and never holds anything up.
#ifndef QXNEGO_TOOLS_CONNECTION_OUTPUT_H
#define QXNEGO_TOOLS_CONNECTION_OUTPUT_H

#include <deque>
#include <string>

#include "tools/descriptor.h"

namespace tools {

class Output {
  public:
    explicit Output(int descriptor);

    // Queues lines, each with its line end; without room they are dropped and counted.
    void add(std::string lines);

    // Counts an entry that could not even be made.
    void count_dropped() { ++dropped_; }

    bool is_waiting() const { return !queue_.empty(); }
    int descriptor() const { return own_.get() >= 0 ? own_.get() : descriptor_; }

    // To be called when the descriptor can be written to; writes what can be written at once.
    void write_some();

    // How many entries were dropped since this was asked last.
    unsigned long take_dropped();

    // The system's error number when the output cannot be written, and everything is dropped from then on; 0 until
    // then.
    int failure() const { return failure_; }

  private:
    int descriptor_;
    Descriptor own_; // the same terminal or pipe, opened so that writing to it never waits
    std::deque<std::string> queue_;
    std::size_t size_ = 0;    // bytes in the queue
    std::size_t written_ = 0; // of the first entry
    unsigned long dropped_ = 0;
    int failure_ = 0;
};

} // namespace tools

#endif
