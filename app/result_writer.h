#pragma once

#include <QJsonObject>
#include <QString>

// Writes the result as indented JSON: replaces the file at path as a whole, or goes to
// standard output when path is empty. On failure stores the message in error.
bool writeResult(const QJsonObject& result, const QString& path, QString* error);
