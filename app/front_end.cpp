#include "app/front_end.h"

#include <QByteArray>

#include <cstdio>

int failWith(int status, const QString& message)
{
    const QByteArray line = message.toUtf8() + '\n';
    std::fwrite(line.constData(), 1, static_cast<size_t>(line.size()), stderr);
    std::fflush(stderr);
    return status;
}
