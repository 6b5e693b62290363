#include "client_core/opc_ua_client_core.h"
#include "tests/client_core/message_capture.h"
#include "sim/support/files.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <atomic>
#include <cstdarg>
#include <thread>

using client_core_test::MessageCapture;

namespace {


void callLogger(UA_LogLevel level, UA_LogCategory category, const char* format, ...)
{
    va_list args;
    va_start(args, format);
    ClientCore::loggerMethod(nullptr, level, category, format, args);
    va_end(args);
}

// A core whose connection attempt failed; file and wipe helpers do not need a server.
const ClientCore& idleCore()
{
    // An empty address fails before any socket is opened.
    static DeviceInstancePlugin plugin;
    plugin.settings["security_mode"] = "1";
    plugin.settings["security_policies"] = "http://opcfoundation.org/UA/SecurityPolicy#None";
    static ClientCore core(plugin, QString(), "tests", 0);
    return core;
}

bool onlyZeros(const QByteArray& bytes)
{
    for (char byte : bytes) {
        if (byte != 0)
            return false;
    }
    return true;
}

} // namespace

TEST(StackLogger, WarningIsWrittenWithItsCategoryLabel)
{
    MessageCapture capture;
    callLogger(UA_LOGLEVEL_WARNING, UA_LOGCATEGORY_NETWORK, "socket %d of %s", 7, "host");
    ASSERT_EQ(capture.texts(), QStringList{"<warning> \"[network] socket 7 of host\""});
    EXPECT_EQ(capture.messages().first().type, QtWarningMsg);
}

TEST(StackLogger, ErrorAndFatalAreWrittenAsErrorsOnTheWarningStream)
{
    MessageCapture capture;
    callLogger(UA_LOGLEVEL_ERROR, UA_LOGCATEGORY_SESSION, "session %s", "lost");
    callLogger(UA_LOGLEVEL_FATAL, UA_LOGCATEGORY_DISCOVERY, "fatal %u", 3u);
    EXPECT_EQ(capture.texts(QtWarningMsg),
              (QStringList{"<error> \"[session] session lost\"", "<error> \"[discovery] fatal 3\""}));
    EXPECT_TRUE(capture.texts(QtCriticalMsg).isEmpty());
}

TEST(StackLogger, EveryCategoryHasItsLabel)
{
    MessageCapture capture;
    const char* labels[] = {"[network]", "[channel]", "[session]", "[server]",  "[client]",
                            "[userland]", "[securitypolicy]", "[eventloop]", "[pubsub]", "[discovery]"};
    for (int category = 0; category < 10; ++category)
        callLogger(UA_LOGLEVEL_WARNING, static_cast<UA_LogCategory>(category), "m");
    const QStringList texts = capture.texts();
    ASSERT_EQ(texts.size(), 10);
    for (int category = 0; category < 10; ++category)
        EXPECT_EQ(texts[category], QStringLiteral("<warning> \"%1 m\"").arg(QLatin1String(labels[category])));
}

TEST(StackLogger, TraceDebugAndInfoAreNeverWritten)
{
    MessageCapture capture;
    callLogger(UA_LOGLEVEL_TRACE, UA_LOGCATEGORY_CLIENT, "trace");
    callLogger(UA_LOGLEVEL_DEBUG, UA_LOGCATEGORY_CLIENT, "debug");
    callLogger(UA_LOGLEVEL_INFO, UA_LOGCATEGORY_CLIENT, "Selected endpoint %s", "x");
    EXPECT_TRUE(capture.texts().isEmpty());
}

TEST(StackLogger, KnownNoiseIsDroppedFromWarningsAndErrors)
{
    MessageCapture capture;
    const char* noise[] = {
        "Client connection already initiated",
        "skip verifying ApplicationURI for the SecurityPolicy http://x",
        "The server returned Endpoints with a different EndpointUrl opc.tcp://a than was used",
        "No suitable endpoint found",
        "Empty trustlist passed",
        "Could not open a TCP connection to opc.tcp://127.0.0.1:1",
        "No certificate store configured",
    };
    for (const char* text : noise) {
        callLogger(UA_LOGLEVEL_WARNING, UA_LOGCATEGORY_CLIENT, "%s", text);
        callLogger(UA_LOGLEVEL_ERROR, UA_LOGCATEGORY_CLIENT, "%s", text);
    }
    EXPECT_TRUE(capture.texts().isEmpty()) << capture.texts().join('\n').toStdString();

    callLogger(UA_LOGLEVEL_WARNING, UA_LOGCATEGORY_CLIENT, "Empty trust list");
    EXPECT_EQ(capture.texts(), QStringList{"<warning> \"[client] Empty trust list\""});
}

TEST(StackLogger, NoiseFilterIsCaseSensitive)
{
    MessageCapture capture;
    callLogger(UA_LOGLEVEL_WARNING, UA_LOGCATEGORY_CLIENT, "empty trustlist");
    EXPECT_EQ(capture.texts(), QStringList{"<warning> \"[client] empty trustlist\""});
}

TEST(StackLogger, FatalMessagesAreNeverFilteredAsNoise)
{
    MessageCapture capture;
    callLogger(UA_LOGLEVEL_FATAL, UA_LOGCATEGORY_CLIENT, "Empty trustlist");
    EXPECT_EQ(capture.texts(), QStringList{"<error> \"[client] Empty trustlist\""});
}

TEST(StackLogger, LongMessagesAreFormattedCompletely)
{
    MessageCapture capture;
    const QByteArray longText(3000, 'x');
    callLogger(UA_LOGLEVEL_WARNING, UA_LOGCATEGORY_USERLAND, "%.*s|end", 3000, longText.constData());
    ASSERT_EQ(capture.texts().size(), 1);
    EXPECT_TRUE(capture.texts().first().endsWith("|end\"")) << capture.texts().first().right(20).toStdString();
    EXPECT_TRUE(capture.texts().first().contains(QString::fromLatin1(longText)));
}

TEST(StackLogger, EveryCallTakesTheFrameworkMutexAlsoWhenItWritesNothing)
{
    std::atomic<bool> returned{false};
    ClientCore::pluginInterfaceMutex.lock();
    std::thread caller([&returned] {
        callLogger(UA_LOGLEVEL_INFO, UA_LOGCATEGORY_CLIENT, "dropped");
        returned = true;
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    const bool returnedWhileLocked = returned;
    ClientCore::pluginInterfaceMutex.unlock();
    caller.join();
    EXPECT_FALSE(returnedWhileLocked);
    EXPECT_TRUE(returned);
}

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
