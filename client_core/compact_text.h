#pragma once

#include <QByteArray>
#include <QString>
#include <QtGlobal>

#include <cstring>
#include <memory>
#include <vector>

// Text held as UTF-8, for tables that keep hundreds of thousands of short texts: a QString
// costs its UTF-16 characters plus a header and an allocation of its own.

// A piece of UTF-8 text held elsewhere.
struct Utf8View
{
    const char* data = nullptr;
    int size = 0;

    bool operator==(Utf8View other) const
    {
        return size == other.size && (size == 0 || std::memcmp(data, other.data, size_t(size)) == 0);
    }
    // The text it was made from: QString::fromUtf8, but a leading U+FEFF is kept, not taken for
    // a byte order mark.
    QString toQString() const;
};

inline Utf8View utf8View(const QByteArray& bytes)
{
    return Utf8View{bytes.constData(), bytes.size()};
}

// The UTF-8 of a text, the bytes QString::toUtf8 gives, into a buffer the caller reuses.
void toUtf8(const QString& text, QByteArray* out);

// Texts that are added once and never change, packed into large blocks: one allocation per
// block instead of one per text, and nothing is copied when the store grows.
class TextArena
{
public:
    using Handle = quint64;

    Handle add(Utf8View text);
    Utf8View view(Handle handle) const;
    void clear();

private:
    char* room(int size, Handle* handle);

    std::vector<std::unique_ptr<char[]>> blocks_;
    int blockUsed_ = 0;
    int blockSize_ = 0;
};
