#include "common/atomic_file.h"
#include "sim/support/files.h"
#include "sim/support/process_runner.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>

#include <sys/resource.h>
#include <sys/stat.h>
#include <fcntl.h>
#include <unistd.h>

namespace {

using Durability = AtomicFile::Durability;

class AtomicFileTest : public testing::TestWithParam<Durability>
{
};

// Lowers the file size limit of this process while it lives, so that writes beyond it fail.
class FileSizeLimit
{
public:
    explicit FileSizeLimit(rlim_t bytes)
    {
        previousHandler_ = std::signal(SIGXFSZ, SIG_IGN);
        ::getrlimit(RLIMIT_FSIZE, &previous_);
        rlimit lowered = previous_;
        lowered.rlim_cur = bytes;
        ::setrlimit(RLIMIT_FSIZE, &lowered);
    }
    ~FileSizeLimit()
    {
        ::setrlimit(RLIMIT_FSIZE, &previous_);
        std::signal(SIGXFSZ, previousHandler_);
    }

private:
    rlimit previous_{};
    void (*previousHandler_)(int) = nullptr;
};

} // namespace

TEST_P(AtomicFileTest, ReplacesTheFileAsAWholeAndLeavesNothingElse)
{
    QTemporaryDir dir;
    const QString path = test_support::writeFile(dir.path(), "out.json", QByteArray(4096, 'x'));
    AtomicFile file(path, GetParam());
    ASSERT_TRUE(file.open());
    EXPECT_TRUE(file.write("new "));
    EXPECT_TRUE(file.write("text"));
    EXPECT_EQ(test_support::readFile(path), QByteArray(4096, 'x'));
    ASSERT_TRUE(file.commit());
    EXPECT_EQ(test_support::readFile(path), QByteArray("new text"));
    EXPECT_EQ(QDir(dir.path()).entryList(QDir::Files), QStringList{"out.json"});
}

TEST_P(AtomicFileTest, MissingDirectoryFailsToOpen)
{
    QTemporaryDir dir;
    AtomicFile file(dir.filePath("missing/out.json"), GetParam());
    EXPECT_FALSE(file.open());
    EXPECT_FALSE(file.commit());
}

TEST_P(AtomicFileTest, FailedWriteKeepsTheOldFile)
{
    QTemporaryDir dir;
    const QString path = test_support::writeFile(dir.path(), "out.json", "old");
    {
        FileSizeLimit limit(0);
        AtomicFile file(path, GetParam());
        ASSERT_TRUE(file.open());
        EXPECT_FALSE(file.write("new"));
        EXPECT_FALSE(file.commit());
    }
    EXPECT_EQ(test_support::readFile(path), QByteArray("old"));
    EXPECT_EQ(QDir(dir.path()).entryList(QDir::Files), QStringList{"out.json"});
}

TEST_P(AtomicFileTest, UncommittedFileIsDiscarded)
{
    QTemporaryDir dir;
    const QString path = test_support::writeFile(dir.path(), "out.json", "old");
    {
        AtomicFile file(path, GetParam());
        ASSERT_TRUE(file.open());
        file.write("new");
    }
    EXPECT_EQ(test_support::readFile(path), QByteArray("old"));
    EXPECT_EQ(QDir(dir.path()).entryList(QDir::Files), QStringList{"out.json"});
}

INSTANTIATE_TEST_SUITE_P(BothDurabilities, AtomicFileTest, testing::Values(Durability::Synced, Durability::Unsynced),
                         [](const testing::TestParamInfo<Durability>& info) {
                             return info.param == Durability::Synced ? "Synced" : "Unsynced";
                         });

TEST(AtomicFile, UnsyncedShortWriteFailsTheCommit)
{
    QTemporaryDir dir;
    const QString path = test_support::writeFile(dir.path(), "out.json", "old");
    {
        FileSizeLimit limit(16);
        AtomicFile file(path, Durability::Unsynced);
        ASSERT_TRUE(file.open());
        EXPECT_FALSE(file.write(QByteArray(64, 'y')));
        EXPECT_FALSE(file.write("more"));
        EXPECT_FALSE(file.commit());
    }
    EXPECT_EQ(test_support::readFile(path), QByteArray("old"));
    EXPECT_EQ(QDir(dir.path()).entryList(QDir::Files), QStringList{"out.json"});
}

TEST(AtomicFile, UnsyncedKeepsTheOldPermissions)
{
    QTemporaryDir dir;
    const QString path = test_support::writeFile(dir.path(), "out.json", "old");
    const QFile::Permissions ownerOnly = QFile::ReadOwner | QFile::WriteOwner;
    ASSERT_TRUE(QFile::setPermissions(path, ownerOnly));
    ASSERT_TRUE(writeFileAtomically(path, "new", Durability::Unsynced));
    EXPECT_EQ(QFile::permissions(path) & (QFile::ReadOwner | QFile::WriteOwner | QFile::ReadGroup | QFile::WriteGroup
                                          | QFile::ReadOther | QFile::WriteOther),
              ownerOnly);
}

TEST_P(AtomicFileTest, NewFileIsOwnerOnly)
{
    QTemporaryDir dir;
    const QString path = dir.filePath("out.json");
    const mode_t previousMask = ::umask(0);
    const bool written = writeFileAtomically(path, "secret", GetParam());
    ::umask(previousMask);
    ASSERT_TRUE(written);
    EXPECT_EQ(test_support::fileMode(path), 0600u);
}

TEST_P(AtomicFileTest, ReplacedFileKeepsItsPermissions)
{
    QTemporaryDir dir;
    const QString path = test_support::writeFile(dir.path(), "out.json", "old");
    ASSERT_EQ(::chmod(QFile::encodeName(path).constData(), 0640), 0);
    ASSERT_TRUE(writeFileAtomically(path, "new", GetParam()));
    EXPECT_EQ(test_support::fileMode(path), 0640u);
    EXPECT_EQ(test_support::readFile(path), QByteArray("new"));
}

TEST_P(AtomicFileTest, NothingIsVisibleBeforeTheCommit)
{
    QTemporaryDir dir;
    const QString path = test_support::writeFile(dir.path(), "out.json", "old");
    AtomicFile file(path, GetParam());
    ASSERT_TRUE(file.open());
    ASSERT_TRUE(file.write("new"));
    EXPECT_EQ(QDir(dir.path()).entryList(QDir::Files | QDir::Hidden | QDir::System), QStringList{"out.json"});
    ASSERT_TRUE(file.commit());
    EXPECT_EQ(QDir(dir.path()).entryList(QDir::Files | QDir::Hidden | QDir::System), QStringList{"out.json"});
}

TEST_P(AtomicFileTest, FailedRenameKeepsTheOldFileAndLeavesNothing)
{
    QTemporaryDir dir;
    const QString path = dir.filePath("out");
    AtomicFile file(path, GetParam());
    ASSERT_TRUE(file.open());
    ASSERT_TRUE(file.write("new"));
    // A non-empty directory took the name meanwhile: the rename over it fails.
    ASSERT_TRUE(QDir(dir.path()).mkpath("out/inside"));
    EXPECT_FALSE(file.commit());
    EXPECT_TRUE(QFileInfo(path).isDir());
    EXPECT_EQ(QDir(dir.path()).entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot),
              QStringList{"out"});
}

TEST_P(AtomicFileTest, DirectoryAtThePathFailsToOpen)
{
    QTemporaryDir dir;
    ASSERT_TRUE(QDir(dir.path()).mkdir("out"));
    AtomicFile file(dir.filePath("out"), GetParam());
    EXPECT_FALSE(file.open());
}

TEST_P(AtomicFileTest, SymbolicLinkStaysALinkToTheNewContent)
{
    QTemporaryDir dir;
    const QString target = test_support::writeFile(dir.path(), "target.json", "old");
    const QString link = dir.filePath("link.json");
    ASSERT_TRUE(QFile::link(target, link));
    ASSERT_TRUE(writeFileAtomically(link, "new", GetParam()));
    EXPECT_TRUE(QFileInfo(link).isSymLink());
    EXPECT_EQ(test_support::readFile(target), QByteArray("new"));
}

TEST(AtomicFileStaleParts, PartsOfDeadProcessesAreRemovedOthersKept)
{
    QTemporaryDir dir;
    const QString path = dir.filePath("out.json");
    const QString dead = test_support::writeFile(dir.path(), "out.json.part-" + QString::number(test_support::endedProcessId()), "x");
    const QString alive = test_support::writeFile(dir.path(), "out.json.part-1", "x");
    const QString own =
        test_support::writeFile(dir.path(), "out.json.part-" + QString::number(QCoreApplication::applicationPid()), "x");
    const QString otherFile = test_support::writeFile(dir.path(), "other.json.part-999999999", "x");
    const QString notAPid = test_support::writeFile(dir.path(), "out.json.part-12x", "x");
    removeStaleAtomicFileParts(path);
    EXPECT_FALSE(QFile::exists(dead));
    EXPECT_TRUE(QFile::exists(alive));
    EXPECT_TRUE(QFile::exists(own));
    EXPECT_TRUE(QFile::exists(otherFile));
    EXPECT_TRUE(QFile::exists(notAPid));
}

namespace {

bool isCharacterDevice(const char* path)
{
    struct stat status;
    return ::stat(path, &status) == 0 && S_ISCHR(status.st_mode);
}

} // namespace

TEST(AtomicFile, DeviceIsWrittenInPlace)
{
    AtomicFile file("/dev/null", Durability::Synced);
    ASSERT_TRUE(file.open());
    EXPECT_TRUE(file.write("text"));
    EXPECT_TRUE(file.commit());
    EXPECT_TRUE(isCharacterDevice("/dev/null"));
}

TEST(AtomicFile, FullDeviceFailsTheCommitAndStaysADevice)
{
    AtomicFile file("/dev/full", Durability::Synced);
    ASSERT_TRUE(file.open());
    EXPECT_FALSE(file.write("text"));
    EXPECT_FALSE(file.commit());
    EXPECT_TRUE(isCharacterDevice("/dev/full"));
}

TEST(AtomicFile, PipeWithoutAReaderFailsToOpenAtOnce)
{
    QTemporaryDir dir;
    const QByteArray fifo = QFile::encodeName(dir.filePath("out.fifo"));
    ASSERT_EQ(::mkfifo(fifo.constData(), 0600), 0);
    AtomicFile file(QFile::decodeName(fifo), Durability::Unsynced);
    EXPECT_FALSE(file.open());
    EXPECT_EQ(QDir(dir.path()).entryList(QDir::System | QDir::Files), QStringList{"out.fifo"});
}

TEST(AtomicFile, PipeReaderGetsTheBytes)
{
    QTemporaryDir dir;
    const QByteArray fifo = QFile::encodeName(dir.filePath("out.fifo"));
    ASSERT_EQ(::mkfifo(fifo.constData(), 0600), 0);
    const int reader = ::open(fifo.constData(), O_RDONLY | O_NONBLOCK);
    ASSERT_GE(reader, 0);
    ASSERT_TRUE(writeFileAtomically(QFile::decodeName(fifo), "document", Durability::Synced));
    char buffer[64] = {};
    const ssize_t got = ::read(reader, buffer, sizeof buffer);
    ::close(reader);
    EXPECT_EQ(QByteArray(buffer, int(std::max<ssize_t>(got, 0))), QByteArray("document"));
    struct stat status;
    ASSERT_EQ(::stat(fifo.constData(), &status), 0);
    EXPECT_TRUE(S_ISFIFO(status.st_mode));
}
