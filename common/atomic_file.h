#pragma once

#include <QByteArray>
#include <QString>

// Replaces the file at a path as a whole: the bytes go to a new file beside it, which takes
// the old file's place only on commit, so a reader sees the old document or the new one,
// never a mix. An uncommitted file is discarded and the old one stays.
//
// The new file is anonymous until the commit where the file system allows it, so a killed
// process leaves nothing behind; elsewhere it is named "<path>.part-<pid>", and
// removeStaleAtomicFileParts clears those of dead processes. A new file is readable by its
// owner only; a replaced file keeps its permissions. A path that names a device or a pipe is
// written in place instead, and the commit tells whether every byte went out.
class AtomicFile
{
public:
    enum class Durability {
        // Synced to disk before it replaces the old file: a document that must survive a power cut.
        Synced,
        // Renamed over the old file without a sync: a file rewritten again and again, whose
        // readers only matter while the writer runs.
        Unsynced,
    };

    AtomicFile(const QString& path, Durability durability);
    ~AtomicFile();
    AtomicFile(const AtomicFile&) = delete;
    AtomicFile& operator=(const AtomicFile&) = delete;

    // False when the new file could not be created.
    bool open();
    // False when these bytes were not all written (disk full, file size limit, I/O error);
    // later writes are then skipped and the commit fails.
    bool write(const QByteArray& bytes);
    // Puts the new file in place; false (old file kept, new one discarded) when it could not
    // be written, synced or put in place.
    bool commit();

private:
    void discard();

    QByteArray given_;       // the path as the caller named it
    QByteArray target_;      // the path the file takes on commit, symbolic links followed
    QByteArray partPath_;    // the named new file while there is one
    Durability durability_;
    int fd_ = -1;
    bool failed_ = false;
    bool inPlace_ = false;   // writing straight into a device or a pipe
};

// Opens, writes and commits in one go.
bool writeFileAtomically(const QString& path, const QByteArray& bytes, AtomicFile::Durability durability);

// Removes the "<path>.part-<pid>" files that processes no longer running left beside path.
void removeStaleAtomicFileParts(const QString& path);
