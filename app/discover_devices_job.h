#pragma once

#include <QJsonObject>
#include <QString>

// Runs the discover_devices job and returns the process exit status: the device records of the
// request (devices/device_records.h: options, scan, records), the result document, written.
int runDiscoverDevices(const QJsonObject& request, const QString& outputPath);
