#include "tests/client_core/message_capture.h"

#include <QMutexLocker>

namespace client_core_test {

namespace {

QMutex captureMutex;
QList<MessageCapture::Message> captured;

} // namespace

MessageCapture::MessageCapture()
{
    QMutexLocker lock(&captureMutex);
    captured.clear();
    previous_ = qInstallMessageHandler(&MessageCapture::handler);
}

MessageCapture::~MessageCapture()
{
    qInstallMessageHandler(previous_);
    QMutexLocker lock(&captureMutex);
    captured.clear();
}

void MessageCapture::handler(QtMsgType type, const QMessageLogContext&, const QString& text)
{
    QMutexLocker lock(&captureMutex);
    captured.append(Message{type, text});
}

QList<MessageCapture::Message> MessageCapture::messages() const
{
    QMutexLocker lock(&captureMutex);
    return captured;
}

QStringList MessageCapture::texts() const
{
    QStringList out;
    for (const Message& message : messages())
        out.append(message.text);
    return out;
}

QStringList MessageCapture::texts(QtMsgType type) const
{
    QStringList out;
    for (const Message& message : messages()) {
        if (message.type == type)
            out.append(message.text);
    }
    return out;
}

int MessageCapture::count(const QString& text) const
{
    return texts().count(text);
}

bool MessageCapture::anyContains(const QString& fragment) const
{
    for (const QString& text : texts()) {
        if (text.contains(fragment))
            return true;
    }
    return false;
}

void MessageCapture::clear()
{
    QMutexLocker lock(&captureMutex);
    captured.clear();
}

} // namespace client_core_test
