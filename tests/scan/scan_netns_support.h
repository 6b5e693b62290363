#pragma once

#include "tests/support/net_lan.h"

#include <gtest/gtest.h>

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QStringList>

// Namespaces need root: in CI their absence is a failure, elsewhere the test is skipped.
#define REQUIRE_NETNS()                                                                         \
    do {                                                                                        \
        QString why_;                                                                           \
        if (!test_support::NetLan::available(&why_)) {                                          \
            if (test_support::runningInCi())                                                    \
                FAIL() << "network namespaces unavailable in CI: " << why_.toStdString();       \
            GTEST_SKIP() << "network namespaces unavailable: " << why_.toStdString();           \
        }                                                                                       \
    } while (0)

namespace scan_test {

inline QStringList stringsOf(const QJsonValue& value)
{
    QStringList list;
    for (const QJsonValue& v : value.toArray())
        list << v.toString();
    return list;
}

inline QJsonObject jsonOf(const test_support::ProcessResult& r)
{
    return QJsonDocument::fromJson(r.out).object();
}

inline std::string describe(const test_support::ProcessResult& r)
{
    return "exit " + std::to_string(r.exitCode) + (r.finished ? "" : " (killed)") + "\nstdout: "
        + r.out.toStdString() + "\nstderr: " + r.err.toStdString();
}

} // namespace scan_test
