#include "tools/interrupt.h"

#include <dirent.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstring>
#include <system_error>
#include <thread>

namespace reelfx::tool {

namespace {

// Set by the signal handler on whichever thread the signal lands and read by
// every thread: lock-free atomics, which a handler may use (a volatile
// sig_atomic_t is safe against the handler only on its own thread).
static_assert(std::atomic<int>::is_always_lock_free);
std::atomic<int> gInterrupted{0};
pthread_t gMainThread;
std::atomic<int> gMainKnown{0};
mode_t gFileMode = 0644;

// Sent to one thread of ours to end its blocking call; ignored by default,
// so a process that never installed the handler is not hurt by it.
constexpr int kWakeSignal = SIGURG;
std::atomic<int> gWakeInstalled{0};
extern "C" void onWake(int) {}

// Temporaries for the second signal's handler, which may only make
// async-signal-safe calls. A slot is claimed (kBusy), filled, then
// published as a file or a folder.
enum : int { kFree = 0, kBusy, kFile, kFolder };
struct Slot {
    std::atomic<int> state{kFree};
    char path[4096] = {};
};
constexpr int kSlots = 16;
Slot gSlots[kSlots];

// The files of `path` (one level: a sequence's pictures), then the folder.
void removeFolderNow(const char* path) {
    const int fd = ::open(path, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd >= 0) {
        alignas(8) char buffer[4096];
        for (long n; (n = ::syscall(SYS_getdents64, fd, buffer, sizeof buffer)) > 0;) {
            for (long at = 0; at < n;) {
                const auto* d = reinterpret_cast<const dirent64*>(buffer + at);
                at += d->d_reclen;
                if (std::strcmp(d->d_name, ".") != 0 && std::strcmp(d->d_name, "..") != 0)
                    ::unlinkat(fd, d->d_name, 0);
            }
        }
        ::close(fd);
    }
    ::rmdir(path);
}

extern "C" void onInterrupt(int) {
    if (gInterrupted.exchange(1) != 0) {
        for (Slot& s : gSlots) {
            const int state = s.state.load();
            if (state == kFile) ::unlink(s.path);
            if (state == kFolder) removeFolderNow(s.path);
        }
        static const char kMessage[] = "\nreelfx: interrupted; nothing written\n";
        [[maybe_unused]] const ssize_t n = ::write(STDERR_FILENO, kMessage, sizeof kMessage - 1);
        ::_exit(130);
    }
    // The main thread may be blocked reading standard input or a FIFO: the
    // wake-up ends that read with EINTR, and FFmpeg then asks the interrupt
    // callback.
    if (gMainKnown && gWakeInstalled && !pthread_equal(pthread_self(), gMainThread))
        pthread_kill(gMainThread, kWakeSignal);
}

// A signal that lands just before the main thread enters a blocking call (a
// FIFO's open waiting for its writer) finds nothing to end, and the call
// would then wait for ever. After a signal this thread therefore wakes the
// main thread again every 50 ms, for up to 10 s, so that such a call ends
// too; before one it only looks at the flag every 20 ms.
void startWaker() {
    // Without the thread (none could start) a run still ends on a signal
    // everywhere but in that narrow window.
    try {
        std::thread([] {
            using std::chrono::milliseconds;
            while (gInterrupted.load() == 0) std::this_thread::sleep_for(milliseconds(20));
            for (int i = 0; i < 200; ++i) {
                pthread_kill(gMainThread, kWakeSignal);
                std::this_thread::sleep_for(milliseconds(50));
            }
        }).detach();
    } catch (const std::system_error&) {
    }
}

}  // namespace

void installInterruptHandlers() {
    gMainThread = pthread_self();
    gMainKnown = 1;
    const mode_t mask = ::umask(0);
    ::umask(mask);
    gFileMode = 0666 & ~mask;
    struct sigaction action {};
    action.sa_handler = onInterrupt;
    sigemptyset(&action.sa_mask);
    action.sa_flags = 0;  // no SA_RESTART: blocking reads and writes return EINTR
    for (int sig : {SIGINT, SIGTERM, SIGHUP}) sigaction(sig, &action, nullptr);
    // The wake-up call does nothing but end the call it lands in.
    struct sigaction wake {};
    wake.sa_handler = onWake;
    sigemptyset(&wake.sa_mask);
    wake.sa_flags = 0;
    if (sigaction(kWakeSignal, &wake, nullptr) == 0) {
        gWakeInstalled = 1;
        startWaker();
    }
    // A reader that goes away makes writes fail with EPIPE, reported like
    // any other write error.
    std::signal(SIGPIPE, SIG_IGN);
}

bool interrupted() { return gInterrupted.load() != 0; }

int interruptCallback(void*) { return interrupted() ? 1 : 0; }

void wakeAfterInterrupt(pthread_t thread) {
    // Without the handler the signal would be ignored anyway (its default).
    if (gWakeInstalled && interrupted()) pthread_kill(thread, kWakeSignal);
}

void throwIfInterrupted() {
    if (interrupted()) throw Interrupted{};
}

int registerTemporary(const std::string& path, bool folder) {
    if (path.size() >= sizeof gSlots[0].path) return -1;
    for (int i = 0; i < kSlots; ++i) {
        int expected = kFree;
        if (!gSlots[i].state.compare_exchange_strong(expected, kBusy)) continue;
        std::memcpy(gSlots[i].path, path.c_str(), path.size() + 1);
        gSlots[i].state.store(folder ? kFolder : kFile);
        return i;
    }
    return -1;
}

void forgetTemporary(int handle) {
    if (handle >= 0 && handle < kSlots) gSlots[handle].state.store(kFree);
}

mode_t newFileMode() { return gFileMode; }

}  // namespace reelfx::tool
