#include "RecoveryFixture.h"

#include "torture/DiskCalls.h"

#include <algorithm>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <vector>

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
class Disk {
public:
    enum class Holds { Parts, Old, New };

    Disk(const string &target, const string &old, const string &fresh)
        : m_target(target)
        , m_folder(target.substr(0, target.rfind('/')))
        , m_old(old)
        , m_new(fresh)
    {
    }

    void apply(const Change &change)
    {
        switch (change.call) {
        case DiskCall::Sync:
            if (!change.isFolder)
                m_durable[change.file] = change.content == m_new   ? Holds::New
                                         : change.content == m_old ? Holds::Old
                                                                   : Holds::Parts;
            else if (change.path == m_folder)
                m_named = {m_latest};
            break;
        case DiskCall::Rename:
            if (change.path == m_target)
                m_named.insert(m_latest = change.file);
            break;
        default:
            m_durable[change.file] = Holds::Parts;
        }
    }
    /// Whether the target is what is expected, whatever a power cut leaves.
    bool isSurely(std::set<Holds> expected) const
    {
        return std::all_of(m_named.begin(), m_named.end(), [&](ino_t file) {
            const auto found = m_durable.find(file);
            return expected.count(found == m_durable.end() ? Holds::Parts : found->second) > 0;
        });
    }

private:
    const string m_target, m_folder;
    const string &m_old, &m_new;
    std::map<ino_t, Holds> m_durable{{0, Holds::Old}};
    std::set<ino_t> m_named = {0}; ///< the files that the target may be; 0: the old one
    ino_t m_latest = 0;
};

TEST_F(RecoveryTest, download_cutAtAnyMoment_leavesTheTargetOldOrWhole)
{
    const struct {
        int size;
        std::int64_t pieceSize;
        QByteArray old;
    } rows[] = {{20, 1 << 20, ""}, {5000000, 1LL << 40, "old"}, {5000000, 300000, "old"}, {80000000, 9000000, ""}};
    const auto api = session();
    for (const auto &row : rows) {
        SCOPED_TRACE(std::to_string(row.size) + " bytes in pieces of " + std::to_string(row.pieceSize));
        portal.setStorage(options(row.pieceSize, {}).storage);
        const string bytes = noise(row.size).toStdString(), name = "cut" + std::to_string(row.pieceSize);
        portal.addFile(job, name, bytes);
        const string target = write("to/target", row.old);
        if (row.old.isEmpty())
            QFile::remove(qt("to/target"));
        std::optional<ApiError> outcome;
        std::size_t before = 0; // changes before the completion
        changes.clear();
        Torture::watchDisk(folder.path().toStdString(), record);
        api->downloadFile({target, {job, name, 0, 0, {}, false}}, {},
                          [&](const ApiError &error, const FileDownloadDetails &) {
                              const std::lock_guard lock(mutex);
                              outcome = error;
                              before = changes.size();
                          });
        ASSERT_TRUE(waitUntil([&] { return outcome.has_value(); }, 30000));
        Torture::watchDisk({}, nullptr);
        ASSERT_EQ(outcome->errorCode, 200) << outcome->errorMessage;
        const string old = row.old.toStdString();
        Disk disk(target, old, bytes);
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
