// Fault injection for the tool's tests, loaded with LD_PRELOAD into the real
// reelfx program: every array new from the (REELFX_FAIL_NEW_AFTER + 1)-th on
// throws std::bad_alloc, as if memory ran out inside the module part way
// through a render. The program and the libraries it uses allocate through
// containers and malloc; array new is the module's (Flood's working planes).
#include <atomic>
#include <cstdlib>
#include <new>

namespace {

std::atomic<long long> arrays{0};

long long failAfter() {
    const char* text = std::getenv("REELFX_FAIL_NEW_AFTER");
    return text && *text ? std::atoll(text) : -1;
}

}  // namespace

void* operator new[](size_t bytes) {
    static const long long after = failAfter();
    if (after >= 0 && arrays++ >= after) throw std::bad_alloc();
    if (void* p = std::malloc(bytes ? bytes : 1)) return p;
    throw std::bad_alloc();
}

void operator delete[](void* p) noexcept { std::free(p); }
void operator delete[](void* p, size_t) noexcept { std::free(p); }
