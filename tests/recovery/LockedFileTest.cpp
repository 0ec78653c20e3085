#include "support/TestFolder.h"
#include "torture/DiskCalls.h"

#include "base/LockedFile.h"

#include <deque>

#include <sys/stat.h>
#include <unistd.h>

using namespace Velmora;
using Torture::DiskCall, Torture::halfOnly;

namespace {

constexpr int shorten = -2, cancel = -3; ///< the file that is copied; what the caller wants

std::map<DiskCall, std::deque<int>> verdicts; ///< an error or one of these constants for each call, 0 for none
std::string copied;
std::atomic<bool> stop;

int strike(const Torture::DiskUse &use)
{
    auto &left = verdicts[use.call];
    const int verdict = left.empty() ? 0 : left.front();
    if (!left.empty())
        left.pop_front();
    if (verdict == shorten && ::truncate(copied.c_str(), 5) != 0)
        ADD_FAILURE() << copied;
    stop = stop || verdict == cancel;
    return verdict == shorten || verdict == cancel ? 0 : verdict;
}

struct Row {
    const char *name;
    std::map<DiskCall, std::deque<int>> verdicts;
    int error = 0; ///< that is the problem afterwards
};

const Row rows[] = {
    {"nothing fails", {}},
    {"write: interrupted", {{DiskCall::Write, {EINTR, 0, EINTR}}}},
    {"write: in parts", {{DiskCall::Write, {halfOnly, halfOnly, 0, halfOnly}}}},
    {"write: full", {{DiskCall::Write, {0, ENOSPC}}}, ENOSPC},
    {"write: full after a part", {{DiskCall::Write, {0, halfOnly, ENOSPC}}}, ENOSPC},
    {"copy: in parts", {{DiskCall::Copy, {halfOnly, halfOnly}}}},
    {"copy: not by the kernel", {{DiskCall::Copy, {EXDEV}}}},
    {"copy: not to its end by the kernel", {{DiskCall::Copy, {halfOnly, EXDEV}}}},
    {"copy: shorter than it was", {{DiskCall::Copy, {shorten}}}, EIO},
    {"copy: cancelled", {{DiskCall::Copy, {halfOnly, cancel}}, {DiskCall::Write, {0, 0, ENOSPC}}}},
    {"copy: full", {{DiskCall::Copy, {EXDEV}}, {DiskCall::Write, {0, 0, ENOSPC}}}, ENOSPC},
    {"read: interrupted", {{DiskCall::Copy, {EXDEV}}, {DiskCall::Read, {EINTR, halfOnly, EINTR}}}},
    {"read: fails", {{DiskCall::Copy, {EXDEV}}, {DiskCall::Read, {halfOnly, EBADMSG}}}, EBADMSG},
    {"close: fails", {{DiskCall::Close, {EDQUOT}}}, EDQUOT},
    {"sync: fails", {{DiskCall::Sync, {EIO}}}, EIO},
    {"sync: cancelled", {{DiskCall::Sync, {cancel}}}},
    {"rename: fails", {{DiskCall::Rename, {EACCES}}}, EACCES},
    {"sync of the folder: fails", {{DiskCall::Sync, {0, EIO}}}},
};

using LockedFileTest = FolderTest;
TEST_F(LockedFileTest, disk_fails_targetIsOldOrWhole)
{
    const auto openFiles = [] { return QDir(QStringLiteral("/proc/self/fd")).count(); };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.name);
        const auto opened = openFiles();
        const std::string target = write("target", "old");
        ASSERT_EQ(::chmod(target.c_str(), 0604), 0);
        LockedFile file, other;
        ASSERT_TRUE(file.create(qt("file")) == LockedFile::Created::Yes &&
                    other.create(qt("other")) == LockedFile::Created::Yes);
        EXPECT_EQ(LockedFile().create(qt("file")), LockedFile::Created::Exists);
        EXPECT_TRUE(!LockedFile::removeAbandoned(qt("file")) && LockedFile::removeAbandoned(qt("missing")));
        EXPECT_FALSE(QFileInfo(qt("file")).isExecutable());
        std::tie(verdicts, copied, stop) = std::tuple(row.verdicts, at("other"), false);
        Torture::watchDisk(folder.root().toStdString(), strike);
        const bool done = other.write("0123456789", 10) && file.write("abc", 3) && file.append(other, stop) &&
                          file.moveTo(qt("target"), stop);
        file.remove();
        other.remove();
        Torture::watchDisk({}, nullptr);
        EXPECT_EQ(done, row.error == 0 && !stop);
        EXPECT_EQ(file.isInPlace(), done);
        EXPECT_EQ(read("target"), done ? "abc0123456789" : "old");
        EXPECT_TRUE(row.error ? file.problem().contains(qt_error_string(row.error)) : file.problem().isEmpty())
            << file.problem().toStdString();
        struct stat status = {};
        EXPECT_TRUE(::stat(target.c_str(), &status) == 0 && (status.st_mode & 0777) == 0604) << status.st_mode;
        EXPECT_EQ(filesIn("."), QStringList("target"));
        EXPECT_EQ(openFiles(), opened);
    }
}

TEST_F(LockedFileTest, append_ofALargeFile_isDurableOnItsWay)
{
    LockedFile file, other;
    ASSERT_TRUE(file.create(qt("file")) == LockedFile::Created::Yes &&
                other.create(qt("other")) == LockedFile::Created::Yes && other.truncate(64 * 1024 * 1024));
    verdicts = {{DiskCall::Sync, {0, EIO}}};
    Torture::watchDisk(folder.root().toStdString(), strike);
    const bool first = file.append(other, stop = false), second = file.append(other, stop);
    Torture::watchDisk({}, nullptr);
    EXPECT_TRUE(first && !second && file.problem() == qt_error_string(EIO)) << file.problem().toStdString();
}

} // namespace
