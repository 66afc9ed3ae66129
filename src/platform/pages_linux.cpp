#include "platform/pages.h"

#include <sys/mman.h>

namespace kestrine {

void* allocatePages(size_t size) {
    void* const pages =
        ::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    return pages == MAP_FAILED ? nullptr : pages;
}

void releasePages(void* pages, size_t size) {
    (void)::munmap(pages, size);
}

} // namespace kestrine
