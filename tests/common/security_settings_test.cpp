#include "common/security_settings.h"

#include <gtest/gtest.h>

TEST(SecurityMode, OnlyOneToThreeNameAMode)
{
    EXPECT_EQ(securityModeFromNumber(1), SecurityMode::None);
    EXPECT_EQ(securityModeFromNumber(2), SecurityMode::Sign);
    EXPECT_EQ(securityModeFromNumber(3), SecurityMode::SignAndEncrypt);
    for (const int number : {0, 4, -1, 255})
        EXPECT_FALSE(securityModeFromNumber(number).has_value()) << number;
}

TEST(SecurityMode, NumbersThatNameNoModeCountAsNone)
{
    EXPECT_EQ(securityModeOrNone(2), SecurityMode::Sign);
    EXPECT_EQ(securityModeOrNone(3), SecurityMode::SignAndEncrypt);
    EXPECT_EQ(securityModeOrNone(0), SecurityMode::None);
    EXPECT_EQ(securityModeOrNone(4), SecurityMode::None);
}

TEST(SecurityMode, NumbersAndTextsOfEveryMode)
{
    EXPECT_EQ(securityModeNumber(SecurityMode::None), 1);
    EXPECT_EQ(securityModeNumber(SecurityMode::Sign), 2);
    EXPECT_EQ(securityModeNumber(SecurityMode::SignAndEncrypt), 3);
    EXPECT_EQ(securityModeText(SecurityMode::None), QStringLiteral("None"));
    EXPECT_EQ(securityModeText(SecurityMode::Sign), QStringLiteral("Sign"));
    EXPECT_EQ(securityModeText(SecurityMode::SignAndEncrypt), QStringLiteral("Sign & Encrypt"));
}

TEST(DeviceSecurity, ReadsModeAndPolicyFromTheSettings)
{
    const DeviceSecurity security = deviceSecurity(
        {{QStringLiteral("security_mode"), QStringLiteral("3")},
         {QStringLiteral("security_policies"), QStringLiteral("http://opcfoundation.org/UA/SecurityPolicy#Basic256")}});
    EXPECT_EQ(security.mode, 3);
    EXPECT_EQ(security.policyUri, QStringLiteral("http://opcfoundation.org/UA/SecurityPolicy#Basic256"));
}

TEST(DeviceSecurity, ModeThatIsNoDecimalNumberIsZero)
{
    for (const char* text : {"", "abc", "0x2", " 2x"})
        EXPECT_EQ(deviceSecurity({{QStringLiteral("security_mode"), QString::fromLatin1(text)}}).mode, 0) << text;
    EXPECT_EQ(deviceSecurity({{QStringLiteral("security_mode"), QStringLiteral(" 2 ")}}).mode, 2);
    EXPECT_EQ(deviceSecurity({{QStringLiteral("security_mode"), QStringLiteral("7")}}).mode, 7);
}

TEST(DeviceSecurity, MissingSettingsGiveZeroAndNoPolicy)
{
    const DeviceSecurity security = deviceSecurity({});
    EXPECT_EQ(security.mode, 0);
    EXPECT_TRUE(security.policyUri.isEmpty());
}
