#pragma once

#include "sim/support/net_lan.h"
#include "sim/support/process_runner.h"

#include <gtest/gtest.h>

#include <QString>

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
