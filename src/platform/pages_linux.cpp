#include "platform/pages.h"

#include <sys/mman.h>

namespace kestrine {

namespace {

// Bytes. Arrays of that size are tables and lists that are touched all over: the system may give
// them pages of 2 MiB, which take a hundredth of the faults, and hardly miss in its translation
// cache.
constexpr size_t g_fewestHuge = size_t{8} << 20;

} // namespace

void* allocatePages(size_t size) {
    void* const pages =
        ::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (pages == MAP_FAILED) {
        return nullptr;
    }
    if (size >= g_fewestHuge) {
        (void)::madvise(pages, size, MADV_HUGEPAGE); // an advice: without such pages all is as ever
    }
    return pages;
}

void releasePages(void* pages, size_t size) {
    (void)::munmap(pages, size);
}

} // namespace kestrine
