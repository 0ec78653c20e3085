#include "RecoveryFixture.h"

#include <random>

using namespace RecoveryTests;
using namespace Velmora;

namespace {

// Whenever the process is killed, a file is the old one or the whole new one, here and at the service, and the next try
// leaves nothing of the one before. VELMORA_KILLS: how often, when that is more.
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
    Child first(portal, transfers);
    first.go();
    whole.start();
    ASSERT_EQ(first.end(), 0);
    const double duration = double(whole.elapsed());
    const int count = std::max(6, qEnvironmentVariableIntValue("VELMORA_KILLS"));
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
        QByteArray said;
        if (i > 0)
            killed.waitForFinished(moment);
        while (i == 0 && !said.contains("moving") && killed.waitForReadyRead()) // on a busy machine, too
            said += killed.readAll();
        killed.kill();
        killed.waitForFinished();
        const auto moving = (said + killed.readAll()).count("moving");
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

// Two processes and a session of this one, in one folder: files of one name and one base name to targets of their own,
// and to one that they share. VELMORA_ROUNDS: how often, when that is more.
TEST_F(RecoveryTest, processesAndSession_inOneFolder_neverMixFiles)
{
    const QByteArray contents[] = {noise((5 << 20) + 1), noise(4 << 20, 1)};
    const char *const names[] = {"sim-1/same.bin", "sim-2/same.bin"};
    for (int i = 0; i < 2; ++i)
        store(names[i], contents[i]);
    ASSERT_TRUE(QDir(folder.root()).mkdir("to"));
    const auto api = session();
    for (int round = std::max(2, qEnvironmentVariableIntValue("VELMORA_ROUNDS")); round > 0; --round) {
        SCOPED_TRACE(round);
        std::vector<std::unique_ptr<Child>> children;
        QStringList expected = {"shared"};
        int completed = 0;
        const auto count = [&](const ApiError &error, const auto &) { completed += succeeded(error); };
        for (const int owner : {0, 1, 2}) {
            QStringList transfers;
            for (const int i : {0, 1, 2}) { // the third is one of the two
                const QString own = QStringLiteral("%1-%2").arg(owner).arg(i);
                const QString target = qt(i == 2 ? "to/shared" : "to/" + own);
                const char *const name = names[i == 2 ? owner % 2 : i];
                if (i < 2)
                    expected.append(own);
                if (owner < 2)
                    transfers += {"down", job, name, target};
                else
                    api->downloadFile({target.toStdString(), {job, name, 0, 0, {}, false}}, {}, count);
            }
            if (owner < 2)
                children.push_back(std::make_unique<Child>(portal, transfers));
            if (owner == 1)
                children[0]->go(), children[1]->go();
        }
        ASSERT_TRUE(waitUntil([&] { return completed == 3; }, 60000));
        for (const auto &child : children)
            ASSERT_EQ(child->end(), 0) << child->readAll().toStdString();
        expected.sort();
        ASSERT_EQ(filesIn("to"), expected);
        for (const QString &name : expected) {
            const QByteArray bytes = read("to/" + name);
            ASSERT_TRUE(name == "shared" ? bytes == contents[0] || bytes == contents[1]
                                         : bytes == contents[name.back().digitValue()])
                << name.toStdString();
            QFile::remove(qt("to/" + name));
        }
    }
}

} // namespace
