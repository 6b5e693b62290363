#pragma once

#include <QJsonObject>
#include <QString>

// Runs the discover_devices job and returns the process exit status: options, scan, discovery
// queries, merge, endpoints, device records.
int runDiscoverDevices(const QJsonObject& request, const QString& outputPath);
