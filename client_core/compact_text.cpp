#include "client_core/compact_text.h"

namespace {

// Large enough that a walk of a million nodes makes a few dozen blocks, small enough that the
// last, partly used one costs little.
const int standardBlockSize = 1 << 20;
// A text longer than this gets a block of its own rather than leave much of one unused.
const int ownBlockAbove = standardBlockSize / 8;
// Bits of a handle that hold the place in a block; the block number is above them.
const int placeBits = 32;
// U+FEFF in UTF-8, which QString::fromUtf8 drops at the start of a text.
const char byteOrderMark[] = "\xef\xbb\xbf";

// A text's length goes before it, seven bits a byte, the last byte without the high bit.
int lengthBytes(int size)
{
    int bytes = 1;
    for (quint32 rest = quint32(size) >> 7; rest != 0; rest >>= 7)
        ++bytes;
    return bytes;
}

} // namespace

QString Utf8View::toQString() const
{
    const int markSize = int(sizeof byteOrderMark) - 1;
    int marks = 0;
    while (size - marks * markSize >= markSize && std::memcmp(data + marks * markSize, byteOrderMark, markSize) == 0)
        ++marks;
    QString text = QString::fromUtf8(data + marks * markSize, size - marks * markSize);
    if (marks > 0)
        text.prepend(QString(marks, QChar(0xfeff)));
    return text;
}

void toUtf8(const QString& text, QByteArray* out)
{
    // Identifiers and names are nearly always ASCII, which is its own UTF-8.
    const int size = text.size();
    out->resize(size);
    char* to = out->data();
    const QChar* from = text.constData();
    for (int i = 0; i < size; ++i) {
        const ushort u = from[i].unicode();
        if (u >= 0x80) {
            *out = text.toUtf8();
            return;
        }
        to[i] = char(u);
    }
}

char* TextArena::room(int size, Handle* handle)
{
    if (size > ownBlockAbove) {
        blocks_.emplace_back(new char[size_t(size)]);
        blockUsed_ = size;
        blockSize_ = size;
        *handle = Handle(blocks_.size() - 1) << placeBits;
        return blocks_.back().get();
    }
    if (blocks_.empty() || blockSize_ - blockUsed_ < size) {
        blocks_.emplace_back(new char[size_t(standardBlockSize)]);
        blockUsed_ = 0;
        blockSize_ = standardBlockSize;
    }
    *handle = (Handle(blocks_.size() - 1) << placeBits) | Handle(blockUsed_);
    char* place = blocks_.back().get() + blockUsed_;
    blockUsed_ += size;
    return place;
}

TextArena::Handle TextArena::add(Utf8View text)
{
    Handle handle = 0;
    char* place = room(lengthBytes(text.size) + text.size, &handle);
    quint32 rest = quint32(text.size);
    while (rest >= 0x80) {
        *place++ = char(0x80 | (rest & 0x7f));
        rest >>= 7;
    }
    *place++ = char(rest);
    if (text.size > 0)
        std::memcpy(place, text.data, size_t(text.size));
    return handle;
}

Utf8View TextArena::view(Handle handle) const
{
    const char* place = blocks_[size_t(handle >> placeBits)].get() + (handle & 0xffffffffu);
    quint32 size = 0;
    for (int shift = 0;; shift += 7) {
        const quint8 byte = quint8(*place++);
        size |= quint32(byte & 0x7f) << shift;
        if ((byte & 0x80) == 0)
            break;
    }
    return Utf8View{place, int(size)};
}

void TextArena::clear()
{
    *this = TextArena();
}
