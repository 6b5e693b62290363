#pragma once

#include <QList>
#include <QMutex>
#include <QString>
#include <QStringList>
#include <QtGlobal>

#include <ostream>

namespace client_core_test {

// Collects every Qt message written while it lives (one at a time per process).
class MessageCapture
{
public:
    struct Message
    {
        QtMsgType type;
        QString text;
    };

    MessageCapture();
    ~MessageCapture();

    MessageCapture(const MessageCapture&) = delete;
    MessageCapture& operator=(const MessageCapture&) = delete;

    QList<Message> messages() const;
    QStringList texts() const;
    QStringList texts(QtMsgType type) const;
    int count(const QString& text) const;
    bool anyContains(const QString& fragment) const;
    void clear();

private:
    static void handler(QtMsgType type, const QMessageLogContext& context, const QString& text);

    QtMessageHandler previous_ = nullptr;
};

} // namespace client_core_test

// Readable QString values in assertion messages.
inline void PrintTo(const QString& text, std::ostream* out)
{
    *out << '"' << text.toStdString() << '"';
}
