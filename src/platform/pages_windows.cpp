#include "platform/pages.h"

#include "platform/system_windows.h"

namespace kestrine {

void* allocatePages(size_t size) {
    void* const pages = ::VirtualAlloc(nullptr, size, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE);
    if (pages == nullptr) {
        errno = ENOMEM;
    }
    return pages;
}

void releasePages(void* pages, size_t) {
    (void)::VirtualFree(pages, 0, MEM_RELEASE);
}

} // namespace kestrine
