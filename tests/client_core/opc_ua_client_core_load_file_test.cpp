#include "client_core/opc_ua_client_core.h"
#include "tests/client_core/idle_core.h"
#include "tests/client_core/message_capture.h"
#include "sim/support/files.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

using client_core_test::idleCore;
using client_core_test::MessageCapture;

TEST(LoadFile, PemGetsOneTrailingZeroByte)
{
    QTemporaryDir dir;
    const QByteArray text = "-----BEGIN CERTIFICATE-----\nAAAA\n-----END CERTIFICATE-----\n";
    const QString path = test_support::writeFile(dir.path(), "client.pem", text);
    const ClientCore& none = idleCore();
    const QByteArray loaded = none.loadFile(path);
    ASSERT_EQ(loaded.size(), text.size() + 1);
    EXPECT_EQ(loaded.left(text.size()), text);
    EXPECT_EQ(loaded.at(text.size()), '\0');
}

TEST(LoadFile, DerIsReturnedAsRead)
{
    QTemporaryDir dir;
    QByteArray der(5000, '\0');
    for (int i = 0; i < der.size(); ++i)
        der[i] = static_cast<char>(i * 7);
    const QString path = test_support::writeFile(dir.path(), "client.der", der);
    const ClientCore& none = idleCore();
    EXPECT_EQ(none.loadFile(path), der);
}

TEST(LoadFile, UpperCasePemSuffixIsNotPem)
{
    QTemporaryDir dir;
    const QString path = test_support::writeFile(dir.path(), "client.PEM", "abc");
    const ClientCore& none = idleCore();
    EXPECT_EQ(none.loadFile(path), QByteArray("abc"));
}

TEST(LoadFile, MissingFileWarnsAndGivesNothing)
{
    QTemporaryDir dir;
    const QString path = dir.path() + "/missing.der";
    const ClientCore& none = idleCore();
    MessageCapture capture;
    EXPECT_TRUE(none.loadFile(path).isEmpty());
    EXPECT_EQ(capture.texts(QtWarningMsg), QStringList{QStringLiteral("\"[opc_ua_client] Could not read %1 key\"").arg(path)});
}
