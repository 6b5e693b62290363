#include "ua/client.h"

#include <gtest/gtest.h>

#include <type_traits>

static_assert(!std::is_copy_constructible<Ua::Client>::value, "a client has one owner");
static_assert(std::is_nothrow_move_constructible<Ua::Client>::value, "the owner moves");

namespace {

int logged = 0;

void countingLog(void*, UA_LogLevel, UA_LogCategory, const char*, va_list)
{
    ++logged;
}

} // namespace

TEST(ClientOwner, DefaultConfigurationIsBuiltAroundTheGivenLogger)
{
    UA_Logger logger = {&countingLog, nullptr, nullptr};
    Ua::Client client = Ua::newClient(&logger);
    ASSERT_TRUE(client);
    UA_ClientConfig* config = UA_Client_getConfig(client.get());
    EXPECT_EQ(config->logging, &logger);
    ASSERT_NE(config->eventLoop, nullptr);
    EXPECT_EQ(config->eventLoop->logger, &logger);
    logged = 0;
    UA_LOG_WARNING(config->logging, UA_LOGCATEGORY_USERLAND, "through the given logger");
    EXPECT_EQ(logged, 1);
}

TEST(ClientOwner, MovesAndDeletesTheClientOnce)
{
    Ua::Client first = Ua::newClient(Ua::silentLogger());
    ASSERT_TRUE(first);
    UA_Client* raw = first.get();
    Ua::Client second = std::move(first);
    EXPECT_EQ(first.get(), nullptr);
    EXPECT_EQ(second.get(), raw);
    second.reset();
    EXPECT_EQ(second.get(), nullptr);
}

TEST(SilentLogger, IsSharedAndNeverCleared)
{
    UA_Logger* logger = Ua::silentLogger();
    ASSERT_NE(logger, nullptr);
    EXPECT_EQ(logger, Ua::silentLogger());
    EXPECT_EQ(logger->log, &Ua::silentOpcUaLog);
    EXPECT_EQ(logger->clear, nullptr);
}
