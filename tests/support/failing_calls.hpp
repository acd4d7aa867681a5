// Fails system calls of the library by count, as fail_allocation fails allocations.
//
// The calls: openat, write, fsync, fchown, fchmod, renameat. Only those of the thread that asked
// count.
#pragma once

namespace kit {

// The nth call from now on fails with an error; 0 fails none. An error of 0 means for write that it
// takes half of the bytes, and nothing for the others.
void fail_call(long nth, int error);

// Calls since then.
long calls_seen();

}  // namespace kit
