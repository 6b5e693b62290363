#include "conversion_support.h"

#include <QDateTime>
#include <QMutex>
#include <QMutexLocker>

#include <cstdlib>
#include <ctime>

namespace values_test {

namespace {

QMutex capturedMutex;
QStringList captured;
QtMessageHandler previousHandler = nullptr;

void captureMessage(QtMsgType type, const QMessageLogContext& context, const QString& text)
{
    if (type == QtWarningMsg) {
        QMutexLocker lock(&capturedMutex);
        captured.append(text);
    }
    Q_UNUSED(context);
}

} // namespace

void useUtcTimeZone()
{
    qputenv("TZ", "UTC");
    tzset();
}

UA_DateTime ticksOf(int year, int month, int day, int hour, int minute, int second, int ms)
{
    const QDateTime dt(QDate(year, month, day), QTime(hour, minute, second, ms), Qt::UTC);
    return dt.toMSecsSinceEpoch() * 10000 + 116444736000000000LL;
}

ClientCore::Node nodeOfKind(qint32 kind, quint16 arrayIndex)
{
    ClientCore::Node node;
    node.dataTypeKind = kind;
    node.arrayIndex = arrayIndex;
    return node;
}

QByteArray bytesOf(const UA_String& s)
{
    if (!s.data || s.length == 0)
        return QByteArray();
    return QByteArray(reinterpret_cast<const char*>(s.data), static_cast<int>(s.length));
}

WarningCapture::WarningCapture()
{
    QMutexLocker lock(&capturedMutex);
    captured.clear();
    previousHandler = qInstallMessageHandler(captureMessage);
}

WarningCapture::~WarningCapture()
{
    qInstallMessageHandler(previousHandler);
}

QStringList WarningCapture::messages() const
{
    QMutexLocker lock(&capturedMutex);
    return captured;
}

} // namespace values_test
