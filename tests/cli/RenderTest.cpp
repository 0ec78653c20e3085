#include "Render.h"
#include "JobState.h"
#include "ProgressView.h"

#include <gtest/gtest.h>

#include <QSet>

using namespace Velmora;
using namespace Velmora::Cli;

namespace {

const BarStyle Plain = BarStyle::forTerminal(false);

QString fromUtf8(const char *text) { return QString::fromUtf8(text); }

JobDetails jobOf(std::list<std::string> statuses)
{
    JobDetails job;
    for (const std::string &status : statuses)
        job.jobStatus.push_back({"J", status, 1000});
    return job;
}

SimulationDetails simulationOf(const std::string &id, const std::string &status)
{
    return {id, "-x 1", {{"J", id, status, 1000}}};
}

TEST(RenderTest, bar_anyValue_hasItsWidthAndIsFullAtTheEndOnly)
{
    const struct {
        int value, width;
        const char *bar;
    } rows[] = {{0, 4, "...."},   {50, 4, "##.."}, {99, 4, "###."}, {100, 4, "####"},
                {250, 4, "####"}, {-5, 4, "...."}, {50, 0, ""},     {50, -3, ""}};
    for (const auto &row : rows)
        EXPECT_EQ(bar(row.value, row.width, Plain), fromUtf8(row.bar)) << row.value << " in " << row.width;
}

TEST(RenderTest, elided_anyText_keepsToTheWidth)
{
    const struct {
        const char *text;
        int width;
        const char *result;
    } rows[] = {{"abc", 3, "abc"},    {"abcd", 3, "ab…"}, {"日本語", 6, "日本語"},      {"日本語", 5, "日本…"},
                {"日本語", 4, "日…"}, {"abc", 0, ""},     {"e\u0301té", 3, "e\u0301té"}};
    for (const auto &row : rows) {
        EXPECT_EQ(elided(fromUtf8(row.text), row.width), fromUtf8(row.result)) << row.text;
        EXPECT_LE(displayWidth(elided(fromUtf8(row.text), row.width)), row.width) << row.text;
    }
}

TEST(RenderTest, shown_controlCharacters_cannotSteerTheTerminal)
{
    EXPECT_EQ(shown("a\x1b[2Jb\nc\x7f"), fromUtf8("a\uFFFD[2Jb\uFFFDc\uFFFD"));
    EXPECT_EQ(withoutMarkup("a <b>MAXIMUM</b> of 128"), fromUtf8("a MAXIMUM of 128"));
}

TEST(RenderTest, table_wideCells_linesUpAndFitsTheTerminal)
{
    Table table({{QStringLiteral("NAME"), Align::Left, true}, {QStringLiteral("N"), Align::Right}});
    table.add({fromUtf8("größe"), QStringLiteral("1")});
    table.add({fromUtf8("日本語日本語"), QStringLiteral("128")});
    EXPECT_EQ(table.toString(), fromUtf8("NAME            N\n"
                                         "größe           1\n"
                                         "日本語日本語  128\n"));
    EXPECT_EQ(table.toString(14), fromUtf8("NAME         N\n"
                                           "größe        1\n"
                                           "日本語日…  128\n"));
}

TEST(RenderTest, durationText_secondsMinutesHours)
{
    EXPECT_EQ(durationText(7), fromUtf8("0:07"));
    EXPECT_EQ(durationText(750), fromUtf8("12:30"));
    EXPECT_EQ(durationText(7509), fromUtf8("2:05:09"));
}

TEST(JobStateTest, endOf_statusHistory_lastStatusDecides)
{
    const struct {
        std::list<std::string> history;
        JobEnd end;
        const char *status, *outcome;
    } rows[] = {
        {{}, JobEnd::Going, "unknown", "unknown"},
        {{"SUBMITTED", "QUEUED", "RUNNING"}, JobEnd::Going, "running", "running"},
        {{"RUNNING", "FINISHED"}, JobEnd::Finished, "finished", "finished"},
        {{"Running", "Stopped"}, JobEnd::NotFinished, "stopped", "stopped"},
        {{"RUNNING", "FAILED"}, JobEnd::NotFinished, "failed", "failed"},
        {{"FINISHED", "ARCHIVED"}, JobEnd::Finished, "archived", "finished"},
        {{"STOPPED", "ARCHIVED"}, JobEnd::NotFinished, "archived", "stopped"},
        {{"ARCHIVED"}, JobEnd::NotFinished, "archived", "archived"},
        {{"FINISHED", "RUNNING"}, JobEnd::Going, "running", "running"},
    };
    for (const auto &row : rows) {
        const JobDetails job = jobOf(row.history);
        EXPECT_EQ(endOf(job), row.end) << row.status;
        EXPECT_EQ(statusOf(job), row.status);
        EXPECT_EQ(outcomeOf(job), row.outcome);
    }
}

TEST(JobStateTest, statusOf_newestFirst_isDecidedByTheDates)
{
    JobDetails job;
    job.jobStatus = {{"J", "FINISHED", 3000}, {"J", "RUNNING", 2000}, {"J", "SUBMITTED", 1000}};
    EXPECT_EQ(statusOf(job), "finished");
    EXPECT_EQ(submittedAt(job), 1000);
}

TEST(ProgressViewTest, jobFrame_anyTerminal_fitsAndHidesNothing)
{
    JobState state;
    state.job.jobName = "A name that is longer than a narrow terminal";
    for (int i = 0; i < 40; ++i) {
        const std::string id = "simulation-" + std::to_string(i);
        state.job.simulations.push_back(simulationOf(id, i < 10 ? "FINISHED" : i < 20 ? "RUNNING" : "QUEUED"));
        state.progress[id] = i < 20 ? 350 : 0;
    }
    for (const Terminal::Size size : {Terminal::Size{80, 23}, {200, 60}, {30, 5}, {12, 2}, {1, 1}}) {
        const QStringList lines = jobFrame(state, 65, size, Plain);
        EXPECT_LE(lines.size(), std::max(2, size.rows)) << size.columns;
        for (const QString &line : lines)
            EXPECT_LT(displayWidth(line), std::max(2, size.columns)) << line.toStdString();
    }
    const QStringList lines = jobFrame(state, 65, {80, 12}, Plain);
    ASSERT_EQ(lines.size(), 12);
    EXPECT_TRUE(lines[1].startsWith(QStringLiteral("simulation-10  running    ####"))) << lines[1].toStdString();
    EXPECT_TRUE(lines[1].endsWith(QStringLiteral("# 100%"))) << lines[1].toStdString();
    EXPECT_EQ(lines.last(), QStringLiteral("and 30 more: 10 finished, 20 queued"));
    EXPECT_EQ(jobFrame(state, 65, {80, 60}, Plain).size(), 41);
}

TEST(ProgressViewTest, liveBlock_shownAgain_redrawsInPlace)
{
    QString written;
    LiveBlock block([&](const QString &text) { written += text; });
    block.show({QStringLiteral("a"), QStringLiteral("b")}, 80);
    EXPECT_EQ(written, QStringLiteral("a\x1b[K\nb\x1b[K\n\x1b[J"));
    written.clear();
    block.show({QStringLiteral("123456")}, 80);
    EXPECT_EQ(written, QStringLiteral("\x1b[2A\r123456\x1b[K\n\x1b[J"));
    written.clear();
    block.clear(4); // narrower by now: the line takes two rows
    block.clear(4);
    EXPECT_EQ(written, QStringLiteral("\x1b[2A\r\x1b[J"));
}

} // namespace
