// A pipe that other programs do not inherit.
#include <fcntl.h>
#include <unistd.h>

#include "skerrows.h"

extern "C" int std_pipe(int ends[2]) {
#if defined(__linux__)
    return ::pipe2(ends, O_CLOEXEC);
#else
    if (::pipe(ends) != 0) return -1;
    for (int i = 0; i < 2; ++i) ::fcntl(ends[i], F_SETFD, FD_CLOEXEC);
    return 0;
#endif
}
