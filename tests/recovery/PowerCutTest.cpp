#include "RecoveryFixture.h"

#include "torture/DiskCalls.h"

#include <mutex>

#include <sys/stat.h>
#include <unistd.h>

using namespace RecoveryTests;
using namespace Velmora;
using Torture::DiskCall, Torture::DiskUse;

namespace {

/// A call that changes what a power cut may leave.
struct Change {
    DiskCall call;
    ino_t file = 0; ///< of Rename: the file that gets the name
    string path;    ///< of Rename: the name
    bool isFolder = false;
    string content; ///< of Sync: what is durable after it
};

std::mutex mutex;
std::vector<Change> changes;

int record(const DiskUse &use)
{
    const std::lock_guard lock(mutex);
    struct stat status = {};
    const bool isRename = use.call == DiskCall::Rename;
    if (use.call != DiskCall::Write && use.call != DiskCall::Copy && use.call != DiskCall::Sync && !isRename)
        return 0;
    if ((isRename ? ::stat(use.path.c_str(), &status) : ::fstat(use.descriptor, &status)) != 0)
        return 0;
    Change change{use.call, status.st_ino, isRename ? use.to : use.path, S_ISDIR(status.st_mode), {}};
    if (use.call == DiskCall::Sync && !change.isFolder) {
        change.content.resize(static_cast<std::size_t>(status.st_size));
        if (::pread(use.descriptor, change.content.data(), change.content.size(), 0) != status.st_size)
            change.content.clear();
    }
    changes.push_back(std::move(change));
    return 0;
}

/// What a power cut may leave of a target: bytes that are not synced may be lost in any part, and a rename happens at
/// any time until its folder is synced.
struct Disk {
    enum class Holds { Parts, Old, New };

    void apply(const Change &change)
    {
        const Holds synced = change.content == fresh ? Holds::New : change.content == old ? Holds::Old : Holds::Parts;
        if (change.call == DiskCall::Rename && change.path == target)
            named.insert(latest = change.file);
        else if (change.isFolder && change.path == target.substr(0, target.rfind('/')))
            named = {latest};
        else if (change.call != DiskCall::Rename && !change.isFolder)
            durable[change.file] = change.call == DiskCall::Sync ? synced : Holds::Parts;
    }
    /// Whether the target is what is expected, whatever a power cut leaves.
    bool isSurely(const std::set<Holds> &expected)
    {
        return std::all_of(named.begin(), named.end(), [&](ino_t file) { return expected.count(durable[file]) > 0; });
    }

    const string target, old, fresh;
    std::map<ino_t, Holds> durable = {{0, Holds::Old}}; ///< of others: parts
    std::set<ino_t> named = {0};                        ///< the files that the target may be; 0: the old one
    ino_t latest = 0;
};

TEST_F(RecoveryTest, download_cutAtAnyMoment_leavesTheTargetOldOrWhole)
{
    const std::tuple<int, std::int64_t, QByteArray> rows[] = {
        {20, 1 << 20, ""}, {5000000, 1LL << 40, "old"}, {5000000, 300000, "old"}, {80000000, 9000000, ""}};
    const auto api = session();
    for (const auto &[size, pieceSize, old] : rows) {
        SCOPED_TRACE(std::to_string(size) + " bytes in pieces of " + std::to_string(pieceSize));
        portal.setStorage(options(pieceSize, {}).storage);
        const string bytes = noise(size).toStdString(), name = "cut" + std::to_string(pieceSize);
        portal.addFile(job, name, bytes);
        const string target = write("to/target", old);
        if (old.isEmpty())
            QFile::remove(qt("to/target"));
        ApiError outcome;
        std::size_t before = 0; // changes before the completion
        changes.clear();
        Torture::watchDisk(folder.root().toStdString(), record);
        api->downloadFile({target, {job, name, 0, 0, {}, false}}, {},
                          [&](const ApiError &error, const FileDownloadDetails &) {
                              const std::lock_guard lock(mutex);
                              outcome = error;
                              before = changes.size();
                          });
        ASSERT_TRUE(waitUntil([&] { return before > 0; }, 30000));
        Torture::watchDisk({}, nullptr);
        ASSERT_EQ(outcome.errorCode, 200) << outcome.errorMessage;
        Disk disk{target, old.toStdString(), bytes};
        for (std::size_t i = 0; i < changes.size(); ++i) {
            disk.apply(changes[i]);
            ASSERT_TRUE(disk.isSurely({Disk::Holds::Old, Disk::Holds::New}))
                << "after change " << i << ": " << changes[i].path;
            ASSERT_TRUE(i + 1 != before || disk.isSurely({Disk::Holds::New})) << "success was reported too early";
        }
        EXPECT_GE(before, 4U) << "write, sync, rename, sync of the folder";
        EXPECT_TRUE(disk.isSurely({Disk::Holds::New}));
        EXPECT_TRUE(read("to/target").toStdString() == bytes);
    }
}

} // namespace
