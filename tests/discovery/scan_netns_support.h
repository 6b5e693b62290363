#pragma once

#include "tests/support/require_netns.h"

#include <gtest/gtest.h>

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QStringList>

namespace scan_test {

inline QStringList stringsOf(const QJsonValue& value)
{
    QStringList list;
    for (const QJsonValue& v : value.toArray())
        list << v.toString();
    return list;
}

inline QJsonObject jsonOf(const test_support::ProcessResult& r)
{
    return QJsonDocument::fromJson(r.out).object();
}

using test_support::describe;

} // namespace scan_test
