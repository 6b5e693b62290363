#include "common/atomic_file.h"
#include "sim/support/files.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <csignal>

#include <sys/resource.h>

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
