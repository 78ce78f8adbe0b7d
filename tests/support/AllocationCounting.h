#pragma once

// Counts every allocation of the test program that includes it (each test
// file is a program of its own) while `allocationcount::counting` is set:
// the replaced operator new and delete pass to malloc and free, and the link
// wraps malloc, calloc and realloc (tests/CMakeLists.txt), which also
// catches the matrix blocks that come from calloc. Include it in one file
// of a program only: it defines the replacements.

#include <cstddef>
#include <cstdlib>
#include <new>

namespace allocationcount {

inline bool counting = false;
inline long allocations = 0;

} // namespace allocationcount

extern "C" {
void* __real_malloc(size_t n);
void* __real_calloc(size_t count, size_t n);
void* __real_realloc(void* p, size_t n);

void* __wrap_malloc(size_t n) {
    allocationcount::allocations += allocationcount::counting;
    return __real_malloc(n);
}
void* __wrap_calloc(size_t count, size_t n) {
    allocationcount::allocations += allocationcount::counting;
    return __real_calloc(count, n);
}
void* __wrap_realloc(void* p, size_t n) {
    allocationcount::allocations += allocationcount::counting;
    return __real_realloc(p, n);
}
}

void* operator new(size_t n) {
    if (void* p = std::malloc(n ? n : 1))
        return p;
    throw std::bad_alloc();
}
void* operator new[](size_t n) {
    return operator new(n);
}
void* operator new(size_t n, const std::nothrow_t&) noexcept {
    return std::malloc(n ? n : 1);
}
void* operator new[](size_t n, const std::nothrow_t&) noexcept {
    return std::malloc(n ? n : 1);
}
void operator delete(void* p) noexcept {
    std::free(p);
}
void operator delete[](void* p) noexcept {
    std::free(p);
}
void operator delete(void* p, size_t) noexcept {
    std::free(p);
}
void operator delete[](void* p, size_t) noexcept {
    std::free(p);
}
