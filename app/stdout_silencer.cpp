#include "app/stdout_silencer.h"

#include <cstdio>

#include <fcntl.h>
#include <unistd.h>

ScopedStdoutSilencer::ScopedStdoutSilencer()
{
    // Whatever is still buffered belongs to the real standard output.
    std::fflush(stdout);
    savedFd_ = ::dup(1);
    if (savedFd_ < 0)
        return;
    nullFd_ = ::open("/dev/null", O_WRONLY);
    if (nullFd_ < 0)
        return;
    if (::dup2(nullFd_, 1) == 1)
        active_ = true;
}

ScopedStdoutSilencer::~ScopedStdoutSilencer()
{
    restore();
}

void ScopedStdoutSilencer::restore()
{
    // Output the stack buffered while silenced must not reach the real descriptor later.
    if (active_)
        std::fflush(stdout);
    if (savedFd_ >= 0) {
        if (active_)
            ::dup2(savedFd_, 1);
        ::close(savedFd_);
        savedFd_ = -1;
    }
    if (nullFd_ >= 0) {
        ::close(nullFd_);
        nullFd_ = -1;
    }
    active_ = false;
}
