#include "common/opc_tcp_scheme.h"

#include <gtest/gtest.h>

TEST(OpcTcpScheme, IsFoundInAnyCase)
{
    EXPECT_TRUE(hasOpcTcpScheme(QStringLiteral("opc.tcp://10.0.0.5:4840")));
    EXPECT_TRUE(hasOpcTcpScheme(QStringLiteral("OPC.TCP://plc")));
    EXPECT_TRUE(hasOpcTcpScheme(QStringLiteral("opc.tcp://")));
    EXPECT_FALSE(hasOpcTcpScheme(QString()));
    EXPECT_FALSE(hasOpcTcpScheme(QStringLiteral(" opc.tcp://10.0.0.5")));
    EXPECT_FALSE(hasOpcTcpScheme(QStringLiteral("http://10.0.0.5")));
    EXPECT_FALSE(hasOpcTcpScheme(QStringLiteral("opc.tcp:/10.0.0.5")));
}

TEST(OpcTcpScheme, WithoutItLeavesWhatFollows)
{
    EXPECT_EQ(withoutOpcTcpScheme(QStringLiteral("opc.tcp://10.0.0.5:4840/ua")), QStringLiteral("10.0.0.5:4840/ua"));
    EXPECT_EQ(withoutOpcTcpScheme(QStringLiteral("Opc.Tcp://plc")), QStringLiteral("plc"));
    EXPECT_EQ(withoutOpcTcpScheme(QStringLiteral("plc:4840")), QStringLiteral("plc:4840"));
    EXPECT_EQ(withoutOpcTcpScheme(QStringLiteral("opc.tcp://")), QString());
}

TEST(OpcTcpScheme, PutInFrontUnlessWrittenInLowerCase)
{
    EXPECT_EQ(withOpcTcpScheme(QStringLiteral("10.0.0.5:4840")), QStringLiteral("opc.tcp://10.0.0.5:4840"));
    EXPECT_EQ(withOpcTcpScheme(QStringLiteral("opc.tcp://10.0.0.5:4840")), QStringLiteral("opc.tcp://10.0.0.5:4840"));
    // The stack takes only the lower-case spelling, so another one is not taken for the scheme.
    EXPECT_EQ(withOpcTcpScheme(QStringLiteral("OPC.TCP://plc")), QStringLiteral("opc.tcp://OPC.TCP://plc"));
    EXPECT_EQ(withOpcTcpScheme(QString()), QStringLiteral("opc.tcp://"));
}
