#include "client_core/opc_ua_client_core.h"
#include "tests/client_core/message_capture.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
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
