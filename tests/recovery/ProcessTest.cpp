#include "RecoveryFixture.h"

#include <QElapsedTimer>
#include <QTimer>

#include <algorithm>
#include <cstdio>
#include <random>

using namespace RecoveryTests;
using namespace Velmora;

namespace {

// Whenever the process is killed, a file is the old one or the whole new one, here and at the service, and the next try
// leaves nothing of the one before. VELMORA_KILLS: how often.
TEST_F(RecoveryTest, process_killedAtAnyMoment_leavesFilesOldOrWhole)
{
    const QByteArray bytes = noise((16 << 20) + 5);
    store("result", bytes);
    write("input", bytes);
    const QStringList transfers = {"down", job, "result", qt("to/result"), "up", job, qt("input")};
    const auto sent = [&] {
        const auto all = portal.files(job);
        const bool exists = std::any_of(all.begin(), all.end(), [](const auto &file) { return file.name == "input"; });
        return QByteArray::fromStdString(exists ? portal.plainFile(job, "input").value_or("half of it") : "");
    };

    QElapsedTimer whole;
    {
        Child child(portal, transfers);
        child.go();
        whole.start();
        ASSERT_EQ(child.end(), 0);
    }
    const double duration = double(whole.elapsed());
    const int count = rounds("VELMORA_KILLS", 6);
    std::mt19937 random(20);
    int down[2] = {}, up[2] = {}, left = 0;
    for (int i = 0; i < count; ++i) {
        const int moment = int(duration * 1.6 * (i + double(random()) / double(std::mt19937::max())) / count);
        SCOPED_TRACE("killed after " + std::to_string(moment) + " ms");
        const QByteArray old = i % 2 ? "old" : "";
        QFile::remove(qt("to/result"));
        portal.removeFile(job, "input");
        if (!old.isEmpty()) {
            write("to/result", old);
            store("input", old);
        }
        Child killed(portal, transfers);
        killed.go();
        killed.waitForFinished(moment);
        killed.kill();
        killed.waitForFinished();
        const int moving = killed.readAll().count("moving");
        ASSERT_TRUE(read("to/result") == old || read("to/result") == bytes);
        ASSERT_TRUE(sent() == old || sent() == bytes);
        ++down[read("to/result") == bytes];
        ++up[sent() == bytes];
        left += moving > 0 && (sent() != bytes || read("to/result") != bytes);

        Child again(portal, transfers);
        again.go();
        ASSERT_EQ(again.end(), 0) << again.readAll().toStdString();
        ASSERT_TRUE(read("to/result") == bytes && sent() == bytes);
        ASSERT_EQ(filesIn("to"), QStringList("result"));
    }
    std::printf("%d kills within %.0f ms; old or none, new: download %d, %d, upload %d, %d; under way: %d\n", count,
                duration * 1.6, down[0], down[1], up[0], up[1], left);
    EXPECT_GT(left, 0) << "no process was killed under way";
    QTimer tick; // the portal's thread wakes no event loop
    tick.start(5);
    const auto isClean = [&] {
        const QStringList stores = QDir(private_.path()).entryList({"storage-*"}, QDir::Dirs);
        return !stores.isEmpty() && QDir(private_.filePath(stores[0])).entryList({"new-*"}).isEmpty();
    };
    EXPECT_TRUE(waitUntil(isClean)) << "the portal keeps half an upload";
}

// Two processes and two sessions of this one, in one folder: files of one name and one base name to targets of their
// own, and to one that they share. VELMORA_ROUNDS: how often.
TEST_F(RecoveryTest, processesAndSessions_inOneFolder_neverMixFiles)
{
    const QByteArray contents[] = {noise((5 << 20) + 1), noise(4 << 20, 1)};
    const char *const names[] = {"sim-1/same.bin", "sim-2/same.bin"};
    for (int i = 0; i < 2; ++i)
        store(names[i], contents[i]);
    ASSERT_TRUE(QDir(folder.path()).mkdir("to"));
    const std::unique_ptr<CloudAPI> sessions[] = {session(), session()};
    for (int round = rounds("VELMORA_ROUNDS", 2); round > 0; --round) {
        SCOPED_TRACE(round);
        const auto target = [&](int owner, int i) {
            return qt(i == 2 ? "to/shared" : QStringLiteral("to/%1-%2").arg(owner).arg(i));
        };
        std::vector<std::unique_ptr<Child>> children;
        for (const int owner : {0, 1}) {
            QStringList transfers;
            for (const int i : {0, 1, 2}) // the third is one of the two
                transfers += {"down", job, names[i == 2 ? owner : i], target(owner, i)};
            children.push_back(std::make_unique<Child>(portal, transfers));
        }
        for (const auto &child : children)
            child->go();
        int completed = 0;
        for (const int owner : {2, 3}) {
            for (const int i : {0, 1, 2})
                sessions[owner - 2]->downloadFile(
                    {target(owner, i).toStdString(), {job, names[i == 2 ? owner - 2 : i], 0, 0, {}, false}}, {},
                    [&](const ApiError &error, const FileDownloadDetails &) {
                        ++completed;
                        EXPECT_EQ(error.errorCode, 200) << error.errorMessage;
                    });
        }
        ASSERT_TRUE(waitUntil([&] { return completed == 6; }, 60000));
        for (const auto &child : children)
            ASSERT_EQ(child->end(), 0) << child->readAll().toStdString();
        QStringList expected = {"shared"};
        for (int owner = 0; owner < 4; ++owner) {
            for (const int i : {0, 1}) {
                ASSERT_TRUE(read(QStringLiteral("to/%1-%2").arg(owner).arg(i)) == contents[i]) << owner << ' ' << i;
                expected.append(QStringLiteral("%1-%2").arg(owner).arg(i));
            }
        }
        ASSERT_TRUE(read("to/shared") == contents[0] || read("to/shared") == contents[1]);
        expected.sort();
        ASSERT_EQ(filesIn("to"), expected);
        for (const QString &name : expected)
            QFile::remove(qt("to/" + name));
    }
}

} // namespace
