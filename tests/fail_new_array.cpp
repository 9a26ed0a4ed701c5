// Fault injection for the tool's tests, loaded with LD_PRELOAD into the real
// reelfx program: array new of exactly REELFX_FAIL_NEW_BYTES bytes throws
// std::bad_alloc from its (REELFX_FAIL_NEW_AFTER + 1)-th call on, as if
// memory ran out inside the module part way through a render. Every other
// allocation goes through untouched.
#include <atomic>
#include <cstdlib>
#include <new>

namespace {

size_t envNumber(const char* name, size_t fallback) {
    const char* text = std::getenv(name);
    return text && *text ? static_cast<size_t>(std::strtoull(text, nullptr, 10)) : fallback;
}

std::atomic<size_t> matching{0};

}  // namespace

void* operator new[](size_t bytes) {
    static const size_t failBytes = envNumber("REELFX_FAIL_NEW_BYTES", 0);
    static const size_t after = envNumber("REELFX_FAIL_NEW_AFTER", 0);
    if (failBytes != 0 && bytes == failBytes && matching++ >= after) throw std::bad_alloc();
    if (void* p = std::malloc(bytes ? bytes : 1)) return p;
    throw std::bad_alloc();
}

void operator delete[](void* p) noexcept {
    std::free(p);
}
void operator delete[](void* p, size_t) noexcept {
    std::free(p);
}
