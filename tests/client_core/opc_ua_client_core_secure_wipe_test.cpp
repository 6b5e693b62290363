#include "client_core/opc_ua_client_core.h"
#include "tests/client_core/idle_core.h"
#include "tests/client_core/message_capture.h"

#include <gtest/gtest.h>

using client_core_test::idleCore;
using client_core_test::MessageCapture;

namespace {

bool onlyZeros(const QByteArray& bytes)
{
    for (char byte : bytes) {
        if (byte != 0)
            return false;
    }
    return true;
}

} // namespace

TEST(SecureWipe, OverwritesTheBufferInPlace)
{
    const ClientCore& none = idleCore();
    QByteArray secret("top secret key material");
    const char* before = secret.constData();
    MessageCapture capture;
    EXPECT_TRUE(none.clearByteArraySecurely(secret));
    EXPECT_EQ(secret.constData(), before);
    EXPECT_EQ(secret.size(), 23);
    EXPECT_TRUE(onlyZeros(secret));
    EXPECT_TRUE(capture.texts().isEmpty());
}

TEST(SecureWipe, SharedBufferIsDetachedSoTheOtherCopyStays)
{
    const ClientCore& none = idleCore();
    QByteArray secret("abc");
    const QByteArray copy = secret;
    EXPECT_TRUE(none.clearByteArraySecurely(secret));
    EXPECT_TRUE(onlyZeros(secret));
    EXPECT_EQ(copy, QByteArray("abc"));
}

TEST(SecureWipe, EmptyAndOneByteBuffersSucceed)
{
    const ClientCore& none = idleCore();
    QByteArray empty;
    EXPECT_TRUE(none.clearByteArraySecurely(empty));
    QByteArray one("k");
    EXPECT_TRUE(none.clearByteArraySecurely(one));
    EXPECT_EQ(one, QByteArray(1, '\0'));
}
