#pragma once

#include <QJsonObject>
#include <QString>

// Runs the discover_devices job and returns the process exit status: the request's options, the
// scan, the device records, the result document, written.
int runDiscoverDevices(const QJsonObject& request, const QString& outputPath);
