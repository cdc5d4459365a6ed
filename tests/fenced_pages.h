/** Memory between two pages that cannot be touched: a read or write past an end ends the test. */
#ifndef KORVANE_TESTS_FENCED_PAGES_H
#define KORVANE_TESTS_FENCED_PAGES_H

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <new>

namespace korvane::test {

enum class Edge {
    kFirst,
    kLast
};  ///< of the pages: an array begins at the one or ends at the other

class FencedPages {
  public:
    /** Room for so many bytes, readable and writable. */
    explicit FencedPages(size_t bytes) : size_((bytes + kPage - 1) / kPage * kPage) {
        void* const all = mmap(nullptr, size_ + 2 * kPage, PROT_NONE,
                               MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
        if (all == MAP_FAILED) {
            throw std::bad_alloc();
        }
        begin_ = static_cast<char*>(all) + kPage;
        allow(PROT_READ | PROT_WRITE);
    }
    ~FencedPages() { munmap(begin_ - kPage, size_ + 2 * kPage); }
    FencedPages(const FencedPages&) = delete;
    FencedPages& operator=(const FencedPages&) = delete;

    /** PROT_READ, PROT_READ | PROT_WRITE or PROT_NONE. */
    void allow(int access) {
        if (mprotect(begin_, size_, access) != 0) {
            throw std::bad_alloc();
        }
    }

    /** An array of n elements at an edge. */
    template <class T>
    T* array(size_t n, Edge edge) {
        return reinterpret_cast<T*>(edge == Edge::kFirst ? begin_ : begin_ + size_ - n * sizeof(T));
    }

  private:
    inline static const auto kPage = static_cast<size_t>(sysconf(_SC_PAGESIZE));

    size_t size_;
    char* begin_;
};

}  // namespace korvane::test

#endif
