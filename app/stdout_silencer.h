#pragma once

// Points descriptor 1 at /dev/null while the OPC UA stack may print, so that
// standard output carries only the result document.
class ScopedStdoutSilencer
{
public:
    ScopedStdoutSilencer();
    ~ScopedStdoutSilencer();
    ScopedStdoutSilencer(const ScopedStdoutSilencer&) = delete;
    ScopedStdoutSilencer& operator=(const ScopedStdoutSilencer&) = delete;

    void restore();
    bool active() const { return active_; }

private:
    int savedFd_ = -1;
    int nullFd_ = -1;
    bool active_ = false;
};
