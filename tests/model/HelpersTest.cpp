// What the public headers compute for every application, without the library.

#include "transfer/PieceName.h"

#include <velmora/Records.h>

#include <gtest/gtest.h>

using namespace Velmora;

namespace {

const bool onWindows = QSysInfo::kernelType() == QLatin1String("winnt");

TEST(HelpersTest, succeeded_everyCode_isAnAnswerBelow300)
{
    for (const auto &[code, success] :
         {std::pair(-1, false), {0, false}, {1, true}, {200, true}, {299, true}, {300, false}})
        EXPECT_EQ(succeeded({code, {}, {}}), success) << code;
}

TEST(HelpersTest, plainText_anyMessage_losesTheTagsOfBoldOnly)
{
    for (const auto &[message, plain] : {std::pair("", ""),
                                         {"a <b>MAXIMUM</b> of <b>two</b>", "a MAXIMUM of two"},
                                         {"<b><b>x</b></b>", "x"},
                                         {"1 < 2\n<i>b</i> <b", "1 < 2\n<i>b</i> <b"}})
        EXPECT_EQ(plainText(message), plain);
}

TEST(HelpersTest, latestStatus_anyHistory_isTheNewestByDate)
{
    using Entries = std::list<std::pair<const char *, long long>>;
    const std::pair<Entries, const char *> rows[] = {{{}, ""},
                                                     {{{"SUBMITTED", -3}}, "SUBMITTED"},
                                                     {{{"RUNNING", 2}, {"FINISHED", 3}, {"QUEUED", 1}}, "FINISHED"},
                                                     {{{"RUNNING", 2}, {"STOPPED", 2}, {"QUEUED", 1}}, "STOPPED"}};
    for (const auto &[entries, latest] : rows) {
        JobDetails job;
        SimulationDetails simulation;
        for (const auto &[status, date] : entries) {
            job.jobStatus.push_back({"job", status, date});
            simulation.simulationStatus.push_back({"job", "sim", status, date});
        }
        EXPECT_EQ(latestStatus(job), latest);
        EXPECT_EQ(latestStatus(simulation), latest);
    }
}

TEST(HelpersTest, hasReceivedAll_anySize_isTrueFromTheListedSize)
{
    FileDownloadDetails file;
    EXPECT_FALSE(hasReceivedAll(file, 16)) << "no size was listed";
    file.cloudFileDetails.fileSize = 5000000000;
    EXPECT_FALSE(hasReceivedAll(file, 4999999999));
    EXPECT_TRUE(hasReceivedAll(file, 5000000000) && hasReceivedAll(file, 5000000001));
}

TEST(HelpersTest, isSafePath_anyName_staysInItsFolderAsInTheLibrary)
{
    const std::string bad[] = {"", ".", "..", "a\\b", "c:d", std::string("a\0b", 3)};
    const std::string windows[] = {"CON",       "con.txt", "Nul ",      "aux .b", "COM1", "lpt9.log.gz", "Com\u00b3.x",
                                   "LPT\u00b9", "CONIN$",  "conout$.a", "prn",    "a.",   "a ",          "a?b",
                                   "a<b",       "a\"b",    "a\tb",      "a|b",    "*"};
    const std::string good[] = {
        "CONE", "COM", "COM10.dat", "xCON", "a.con", ".b", "...b", " a", "LPTx", "a\x7f", "gr\u00fc\u00df \u6587"};
    const auto check = [](const auto &parts, bool safe) {
        for (const std::string &part : parts) {
            for (const std::string &path : {part, "sim-1/" + part, part + "/rtg/x", "a/" + part + "/b"})
                EXPECT_EQ(isSafePath(path), safe) << path;
            EXPECT_EQ(isSafeFileName(QString::fromStdString(part)), safe) << part;
        }
    };
    check(bad, false);
    check(windows, !onWindows);
    check(good, true);
    for (const std::string &part : windows)
        EXPECT_TRUE(isForbiddenOnWindows(part)) << part;
    for (const std::string &part : good)
        EXPECT_FALSE(isForbiddenOnWindows(part)) << part;
    for (const char *path : {"/a", "a/", "a//b", "/", "../../a", "a/../b"})
        EXPECT_FALSE(isSafePath(path)) << path;
    EXPECT_FALSE(isSafeFileName(QStringLiteral("a/b"))) << "a path";
}

} // namespace
