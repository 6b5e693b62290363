#pragma once

#include <QString>
#include <QStringList>

#include <ostream>

// Readable failure output for Qt strings in this folder's suites.
inline void PrintTo(const QString& text, std::ostream* os)
{
    *os << '"' << text.toStdString() << '"';
}

inline void PrintTo(const QStringList& list, std::ostream* os)
{
    *os << '[' << list.join(QLatin1String(" | ")).toStdString() << ']';
}
