#include "run/ProgressView.h"
#include "transfers/TransferView.h"

#include <gtest/gtest.h>

using namespace Velmora;
using namespace Velmora::Cli;

namespace {

using Phase = Transfer::Phase;

const BarStyle Plain = BarStyle::forTerminal(false);
QString u(const char *text) { return QString::fromUtf8(text); }

TEST(RenderTest, text_anyCharacters_keepsToItsWidthAndCannotSteerTheTerminal)
{
    EXPECT_EQ(elided(u("日本語"), 4), u("日…"));
    EXPECT_EQ(elided(u("e\u0301té"), 3), u("e\u0301té"));
    EXPECT_EQ(elided(u("abc"), 0), u(""));
    EXPECT_EQ(shown("a\x1b[2Jb\nc\x7f"), u("a\uFFFD[2Jb\uFFFDc\uFFFD"));
    EXPECT_EQ(sizeText(999500), u("1.00 MB"));
    EXPECT_EQ(durationText(7509), u("2:05:09"));
    Table table({{u("NAME"), Align::Left, true}, {u("N"), Align::Right}});
    table.add({u("größe"), u("1")});
    table.add({u("日本語日本語"), u("128")});
    EXPECT_EQ(table.toString(14), u("NAME         N\ngröße        1\n日本語日…  128\n"));
}

TEST(RenderTest, endOf_statusHistory_lastStatusByDateDecides)
{
    const auto expect = [](const std::list<std::string> &history, JobEnd end, const char *outcome) {
        JobDetails job; // newest first
        for (const std::string &status : history)
            job.jobStatus.push_front({"J", status, 1000LL + int(job.jobStatus.size())});
        EXPECT_EQ(endOf(job), end) << outcome;
        EXPECT_EQ(outcomeOf(job), outcome);
    };
    expect({}, JobEnd::Going, "unknown");
    expect({"Running", "Failed"}, JobEnd::NotFinished, "failed");
    expect({"STOPPED", "ARCHIVED"}, JobEnd::NotFinished, "stopped");
    expect({"ARCHIVED"}, JobEnd::NotFinished, "archived");
    expect({"FINISHED", "RUNNING"}, JobEnd::Going, "running");
}

TEST(RenderTest, frames_anyTerminal_fitAndHideNothing)
{
    JobState state;
    state.job.jobName = "A name that is longer than a narrow terminal";
    Batch batch;
    for (int i = 0; i < 40; ++i) {
        const std::string id = "sim-" + std::to_string(i);
        const char *status = i < 10 ? "FINISHED" : i < 20 ? "RUNNING" : "QUEUED";
        state.job.simulations.push_back({id, "-x 1", {{"J", id, status, 1000}}});
        state.progress[id] = i < 20 ? 350 : 0;
        batch.transfers.push_back(Transfer::down({"J", id, 1000000, 0, "", false}, u("f")));
        if (i >= 10)
            batch.transfers.back().begin(0);
        if (i >= 15)
            batch.transfers.back().end(i < 17 ? Phase::Failed : Phase::Done, {}, 1000);
    }
    batch.transfers[10].progress(250000);
    batch.transfers[10].meter.note(0, 0);
    batch.transfers[10].meter.note(1000, 250000);
    for (const Terminal::Size size : {Terminal::Size{80, 23}, {200, 60}, {30, 5}, {12, 2}, {1, 1}})
        for (const QStringList &lines : {jobFrame(state, 65, size, Plain), transferFrame(batch, size, Plain)}) {
            EXPECT_LE(lines.size(), std::max(2, size.rows)) << size.columns;
            for (const QString &line : lines)
                EXPECT_LT(displayWidth(line), std::max(2, size.columns)) << line.toStdString();
        }
    Transfer transfer = batch.transfers[10];
    transfer.progress(1300000);
    EXPECT_EQ(std::pair(transfer.phase, transfer.share()), std::pair(Phase::Joining, 100));
    transfer = batch.transfers[10];
    transfer.direction = Transfer::Direction::Up;
    transfer.progress(999999);
    EXPECT_EQ(std::pair(transfer.phase, transfer.share()), std::pair(Phase::Sending, 99));
    QStringList lines = jobFrame(state, 65, {80, 12}, Plain);
    EXPECT_EQ(lines[1], u("sim-10  running    ######################################## 100%"));
    EXPECT_EQ(lines.last(), u("and 30 more: 10 finished, 20 queued"));
    EXPECT_EQ(jobFrame(state, 65, {80, 60}, Plain).size(), 41);
    lines = transferFrame(batch, {100, 10}, Plain);
    EXPECT_TRUE(lines[0].startsWith(u("sim-10 ")) && lines[0].endsWith(u("..  25%   250 kB/s     0:03 left")))
        << lines[0].toStdString();
    EXPECT_EQ(lines[7], u("and 33 more: 10 waiting, 23 done")); // the active and the failed ones are shown
    EXPECT_TRUE(lines[8].startsWith(u("23 of 40 done, 2 failed"))) << lines[8].toStdString();
    batch.transfers.resize(12);                  // of 1 MB each, of which one moves
    for (int second = 0; second < 3; ++second) { // and small ones, of which one arrives each second
        batch.transfers.push_back(Transfer::down({"J", "small", 10, 0, "", false}, u("f")));
        EXPECT_EQ(batch.secondsLeft(), second < 2 ? -1 : 46 + 1);
        batch.transfers[10].progress(250000 * (second + 1));
        batch.note(second * 1000);
        if (second < 2)
            batch.transfers.back().end(Phase::Done, {}, 0);
    }
    EXPECT_EQ(batch.secondsLeft(), 45 + 1);

    Pace pace;
    JobState two;
    two.job.simulations = {{"a", "", {}}, {"b", "", {}}};
    for (const int progress : {0, 10, 20, 30}) {
        EXPECT_EQ(pace.secondsLeft(progress * 1000), progress < 30 ? -1 : 70);
        two.progress = {{"a", progress}, {"b", progress}};
        pace.note(progress * 1000, two);
    }
    EXPECT_EQ(pace.secondsLeft(30000), 70);
    EXPECT_EQ(pace.secondsLeft(35000), 65);
}

TEST(RenderTest, liveBlock_shownAgain_redrawsInPlace)
{
    QString written;
    LiveBlock block([&](const QString &text) { written += text; });
    block.show({u("a"), u("b")}, 80);
    block.show({u("123456")}, 80);
    block.clear(4); // narrower by now: the line takes two rows
    block.clear(4);
    EXPECT_EQ(written, u("a\x1b[K\nb\x1b[K\n\x1b[J\x1b[2A\r123456\x1b[K\n\x1b[J\x1b[2A\r\x1b[J"));
}

} // namespace
