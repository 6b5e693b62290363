#pragma once

#include <QByteArray>
#include <QFile>
#include <QSaveFile>
#include <QString>

// Replaces the file at a path as a whole: the bytes go to a new file beside it, which takes
// the old file's place only on commit, so a reader sees the old document or the new one,
// never a mix. An uncommitted file is discarded and the old one stays.
class AtomicFile
{
public:
    enum class Durability {
        // Synced to disk before it replaces the old file: a document that must survive a power cut.
        Synced,
        // Renamed over the old file without a sync, keeping the old file's permissions: a file
        // rewritten again and again, whose readers only matter while the writer runs.
        Unsynced,
    };

    AtomicFile(const QString& path, Durability durability);
    ~AtomicFile();
    AtomicFile(const AtomicFile&) = delete;
    AtomicFile& operator=(const AtomicFile&) = delete;

    // False when the new file could not be created.
    bool open();
    // False when these bytes were not all written. Unsynced: later writes are then skipped and
    // the commit fails. Synced: the commit fails after a write error, as QSaveFile decides.
    bool write(const QByteArray& bytes);
    // Puts the new file in place; false (old file kept) when it could not be written or replaced.
    bool commit();

private:
    QString path_;
    Durability durability_;
    QSaveFile synced_;
    QFile unsynced_;
    bool opened_ = false;
    bool failed_ = false;
};

// Opens, writes and commits in one go.
bool writeFileAtomically(const QString& path, const QByteArray& bytes, AtomicFile::Durability durability);
