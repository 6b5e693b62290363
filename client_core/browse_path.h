#pragma once

#include <QString>
#include <QStringList>

QString joinBrowsePath(const QStringList& segments);

// Whether a joined path names a node better than the current one: any path beats none, a deeper
// path beats a shallower one, and at equal depth the longer one wins.
bool isBetterBrowsePath(const QString& candidate, const QString& current);

void applyAlternateBrowsePath(QString* path, QString* description, const QString& alternative);
