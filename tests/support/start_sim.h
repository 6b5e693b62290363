#pragma once

#include "sim/support/process_runner.h"
#include "sim/support/sim_server.h"

#include <gtest/gtest.h>

#include <QFile>
#include <QString>

// Starts a SimServer on a scenario. A simulator that was not built skips the test, except in CI,
// where that is a failure like any other failure to start.
#define START_SIM_OR_SKIP(server, scenario)                                                          \
    do {                                                                                             \
        QString why_;                                                                                \
        if (!(server).start((scenario), &why_)) {                                                    \
            if (!test_support::runningInCi() && !QFile::exists(test_support::simExecutable()))       \
                GTEST_SKIP() << "opcua_sim is not built";                                            \
            FAIL() << why_.toStdString();                                                            \
        }                                                                                            \
    } while (0)
