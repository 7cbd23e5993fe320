// Makes the allocations of the code under test fail. A program that uses it is linked with failing_heap.cpp and has the
// heap's operations wrapped (function qxnego_failing_heap).
#ifndef QXNEGO_FAILING_HEAP_H
#define QXNEGO_FAILING_HEAP_H

namespace failing_heap {

// While one lives, allocation number `failing` (from 0) and every later one fail.
class From {
  public:
    explicit From(int failing);
    From(const From &) = delete;
    From &operator=(const From &) = delete;
    ~From();

    // Whether one has failed.
    bool happened() const;
};

} // namespace failing_heap

#endif
