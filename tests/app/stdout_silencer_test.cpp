#include "app/stdout_silencer.h"

#include <QByteArray>

#include <gtest/gtest.h>

#include <cstdio>
#include <unistd.h>

namespace {

class StdoutCapture
{
public:
    StdoutCapture()
    {
        std::fflush(stdout);
        saved_ = ::dup(1);
        if (::pipe(pipe_) == 0)
            ::dup2(pipe_[1], 1);
    }
    QByteArray finish()
    {
        std::fflush(stdout);
        ::dup2(saved_, 1);
        ::close(saved_);
        ::close(pipe_[1]);
        QByteArray bytes;
        char buffer[256];
        ssize_t n;
        while ((n = ::read(pipe_[0], buffer, sizeof buffer)) > 0)
            bytes.append(buffer, static_cast<int>(n));
        ::close(pipe_[0]);
        return bytes;
    }

private:
    int saved_ = -1;
    int pipe_[2] = {-1, -1};
};

} // namespace

TEST(StdoutSilencer, DiscardsWritesUntilRestored)
{
    StdoutCapture capture;
    {
        ScopedStdoutSilencer silencer;
        EXPECT_TRUE(silencer.active());
        std::printf("stack noise\n");
        (void)!::write(1, "raw noise\n", 10);
        silencer.restore();
        EXPECT_FALSE(silencer.active());
        std::printf("result\n");
        silencer.restore();
    }
    EXPECT_EQ(capture.finish(), QByteArray("result\n"));
}

TEST(StdoutSilencer, DestructorRestores)
{
    StdoutCapture capture;
    {
        ScopedStdoutSilencer silencer;
        std::printf("hidden\n");
    }
    std::printf("shown\n");
    EXPECT_EQ(capture.finish(), QByteArray("shown\n"));
}

TEST(StdoutSilencer, BufferedOutputBeforeEngagingIsKept)
{
    StdoutCapture capture;
    std::printf("before");
    {
        ScopedStdoutSilencer silencer;
        std::printf("during");
    }
    EXPECT_EQ(capture.finish(), QByteArray("before"));
}
