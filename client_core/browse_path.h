#pragma once

#include <QString>
#include <QStringList>

QString joinBrowsePath(const QStringList& segments);
void applyAlternateBrowsePath(QString* path, QString* description, const QString& alternative);
