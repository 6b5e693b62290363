#pragma once

#include <QString>

// Exit statuses of the discover process.
enum ExitStatus {
    ExitOk = 0,
    ExitBadRequest = 1,
    ExitUnknownMode = 2,
    ExitNoTargetDevice = 3,
    ExitNoAddress = 4,
    ExitConnectFailed = 5,
    ExitBrowseFailed = 6,
    ExitWriteFailed = 7,
};

// Prints the one-line failure message to standard error and returns the status.
int failWith(int status, const QString& message);
