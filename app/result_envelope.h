#pragma once

#include <QJsonArray>
#include <QJsonObject>
#include <QString>
#include <QStringList>

// The result document of both jobs: "success", "devices", "items", "warnings", "mode",
// "job_id" and, for discover_items only, "requested_device".

// The "warnings" of discover_items: distinct, in case-insensitive order.
QJsonArray warningArrayFrom(const QStringList& warnings);
// The discover_items result.
QJsonObject buildResult(const QString& mode, const QJsonObject& request, const QJsonArray& items,
                        const QJsonArray& warnings);
// The discover_devices result; its warnings stay as they arose, in order and with repeats.
QJsonObject buildDevicesResult(const QJsonObject& request, const QJsonArray& devices, const QStringList& warnings);
