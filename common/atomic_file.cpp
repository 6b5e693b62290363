#include "common/atomic_file.h"

#include <QCoreApplication>

#include <cstdio>

namespace {

// One temporary name per process, so that two writers of the same path never share one.
QString unsyncedTemporaryPath(const QString& path)
{
    return path + QStringLiteral(".part-") + QString::number(QCoreApplication::applicationPid());
}

} // namespace

AtomicFile::AtomicFile(const QString& path, Durability durability)
    : path_(path), durability_(durability), synced_(path), unsynced_(unsyncedTemporaryPath(path))
{
}

AtomicFile::~AtomicFile()
{
    // QSaveFile discards its own uncommitted file.
    if (durability_ == Durability::Unsynced && opened_) {
        unsynced_.close();
        QFile::remove(unsynced_.fileName());
    }
}

bool AtomicFile::open()
{
    if (durability_ == Durability::Synced) {
        // Unbuffered, so that a failing write (disk full, file size limit) fails the commit
        // instead of committing a truncated document over the previous one.
        opened_ = synced_.open(QIODevice::WriteOnly | QIODevice::Text | QIODevice::Unbuffered);
        return opened_;
    }
    // Unlike QSaveFile this does not sync to disk: files rewritten after every few changes
    // spent most of their time in the sync otherwise.
    QFile::remove(unsynced_.fileName());
    opened_ = unsynced_.open(QIODevice::WriteOnly | QIODevice::NewOnly | QIODevice::Unbuffered);
    if (opened_ && QFile::exists(path_))
        unsynced_.setPermissions(QFile::permissions(path_));
    return opened_;
}

bool AtomicFile::write(const QByteArray& bytes)
{
    if (!opened_)
        return false;
    if (durability_ == Durability::Synced)
        return synced_.write(bytes) == bytes.size();
    if (failed_)
        return false;
    failed_ = unsynced_.write(bytes) != bytes.size();
    return !failed_;
}

bool AtomicFile::commit()
{
    if (!opened_)
        return false;
    opened_ = false;
    // QSaveFile remembers a write error itself and then refuses to commit.
    if (durability_ == Durability::Synced)
        return synced_.commit();
    unsynced_.close();
    const QString temporary = unsynced_.fileName();
    if (!failed_
        && std::rename(QFile::encodeName(temporary).constData(), QFile::encodeName(path_).constData()) == 0)
        return true;
    QFile::remove(temporary);
    return false;
}

bool writeFileAtomically(const QString& path, const QByteArray& bytes, AtomicFile::Durability durability)
{
    AtomicFile file(path, durability);
    if (!file.open())
        return false;
    file.write(bytes);
    return file.commit();
}
