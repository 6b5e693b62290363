#pragma once

#include "sim/support/plant_fixture.h"
#include "sim/support/process_runner.h"

#include <gtest/gtest.h>

#include <QString>

// Plants need root and the node-opcua peer: a failure in CI, a skip elsewhere.
#define REQUIRE_PLANT()                                                                                 \
    do {                                                                                                \
        QString why_;                                                                                   \
        if (!test_support::Plant::available(&why_)) {                                                   \
            if (test_support::runningInCi())                                                            \
                FAIL() << "plants unavailable in CI: " << why_.toStdString();                           \
            GTEST_SKIP() << "plants unavailable: " << why_.toStdString();                               \
        }                                                                                               \
    } while (0)
