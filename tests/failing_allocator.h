// An allocator for whole test programs that counts allocations and can fail
// the N-th one. It replaces malloc, calloc, realloc, free and the plain
// operator new/delete family in the executable, so the module loaded with
// dlopen allocates through it too. Underneath it calls the C library's
// allocator, or AddressSanitizer's when the program is built with it (then
// LeakSanitizer still sees every block).
//
// Include it in exactly one source file of a program.
#pragma once

#include <cstddef>
#include <cstdint>
#include <new>

extern "C" {
void* __libc_malloc(size_t) noexcept;
void* __libc_calloc(size_t, size_t) noexcept;
void* __libc_realloc(void*, size_t) noexcept;
void __libc_free(void*) noexcept;
#ifdef __SANITIZE_ADDRESS__
void* __interceptor_malloc(size_t) noexcept;
void* __interceptor_calloc(size_t, size_t) noexcept;
void* __interceptor_realloc(void*, size_t) noexcept;
void __interceptor_free(void*) noexcept;
#endif
}

namespace failing_allocator {

#ifdef __SANITIZE_ADDRESS__
inline void* realMalloc(size_t n) { return __interceptor_malloc(n); }
inline void* realCalloc(size_t c, size_t n) { return __interceptor_calloc(c, n); }
inline void* realRealloc(void* p, size_t n) { return __interceptor_realloc(p, n); }
inline void realFree(void* p) { __interceptor_free(p); }
#else
inline void* realMalloc(size_t n) { return __libc_malloc(n); }
inline void* realCalloc(size_t c, size_t n) { return __libc_calloc(c, n); }
inline void* realRealloc(void* p, size_t n) { return __libc_realloc(p, n); }
inline void realFree(void* p) { __libc_free(p); }
#endif

// Single-threaded test programs: plain counters.
inline uint64_t allocations = 0;  // successful and failed requests since start
inline uint64_t failAt = 0;       // the request number that fails; 0 = none
inline int64_t live = 0;          // blocks handed out and not yet freed

// True when this request is the one to fail.
inline bool failNext() { return ++allocations == failAt; }

// Fails the n-th request from now on (n >= 1); 0 disarms.
inline void failNth(uint64_t n) { failAt = n ? allocations + n : 0; }

}  // namespace failing_allocator

extern "C" {

void* malloc(size_t n) noexcept {
    if (failing_allocator::failNext()) return nullptr;
    void* p = failing_allocator::realMalloc(n);
    if (p) ++failing_allocator::live;
    return p;
}

void* calloc(size_t c, size_t n) noexcept {
    if (failing_allocator::failNext()) return nullptr;
    void* p = failing_allocator::realCalloc(c, n);
    if (p) ++failing_allocator::live;
    return p;
}

void* realloc(void* old, size_t n) noexcept {
    if (failing_allocator::failNext()) return nullptr;
    void* p = failing_allocator::realRealloc(old, n);
    if (p && !old) ++failing_allocator::live;
    if (!p && old && n == 0) --failing_allocator::live;
    return p;
}

void free(void* p) noexcept {
    if (p) --failing_allocator::live;
    failing_allocator::realFree(p);
}

}  // extern "C"

namespace failing_allocator {
inline void* newOrThrow(size_t n) {
    void* p = malloc(n ? n : 1);
    if (!p) throw std::bad_alloc();
    return p;
}
}  // namespace failing_allocator

void* operator new(size_t n) { return failing_allocator::newOrThrow(n); }
void* operator new[](size_t n) { return failing_allocator::newOrThrow(n); }
void* operator new(size_t n, const std::nothrow_t&) noexcept { return malloc(n ? n : 1); }
void* operator new[](size_t n, const std::nothrow_t&) noexcept { return malloc(n ? n : 1); }
void operator delete(void* p) noexcept { free(p); }
void operator delete[](void* p) noexcept { free(p); }
void operator delete(void* p, size_t) noexcept { free(p); }
void operator delete[](void* p, size_t) noexcept { free(p); }
void operator delete(void* p, const std::nothrow_t&) noexcept { free(p); }
void operator delete[](void* p, const std::nothrow_t&) noexcept { free(p); }
