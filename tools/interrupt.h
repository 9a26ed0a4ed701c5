// Signals and the temporary files and folders they must not leave behind.
//
// SIGINT, SIGTERM and SIGHUP set a flag that the frame loops and FFmpeg's
// interrupt callbacks check, so the run ends with 130 and its temporaries
// are removed on the way out. A second signal removes every registered
// temporary at once and exits with 130 straight away, for a run stuck in a
// long call.
#pragma once

#include <pthread.h>
#include <sys/types.h>

#include <string>

namespace reelfx::tool {

// Called once by main before any other thread starts; standard output's
// closed pipe becomes an error (EPIPE) instead of a silent death.
void installInterruptHandlers();
bool interrupted();
// FFmpeg's AVIOInterruptCB callback: 1 after a signal.
int interruptCallback(void*);
// After a signal, ends a blocking read or write of `thread` (one of ours)
// with EINTR, so that it sees the signal too: the signal itself may have
// been taken by another thread. The main thread is woken by the handler.
void wakeAfterInterrupt(pthread_t thread);
// Thrown by the frame loops when interrupted() turns true.
struct Interrupted {};
void throwIfInterrupted();

// A temporary file or folder (its files one level deep) that the second
// signal's handler removes; returns a handle for forgetTemporary, or -1
// when every slot is taken (the first signal's way out still removes it).
int registerTemporary(const std::string& path, bool folder);
void forgetTemporary(int handle);

// The mode a new file gets from open(..., 0666) under this process's umask.
mode_t newFileMode();

}  // namespace reelfx::tool
