#pragma once

#include <QJsonObject>
#include <QString>

// Runs the discover_items job and returns the process exit status.
int runDiscoverItems(const QJsonObject& request, const QString& outputPath);
