/// @file ScaleBench.cpp
/// Long listings and many subscriptions: pauses of the owner's event loop, memory, time.
///
///     velmora_scale_bench [--jobs N] [--subscriptions N] [--rounds N]
///
/// The portal runs in a process of its own. Each subscription takes an open file in both
/// processes: for many, raise the limit with `ulimit -n`.
#include "Measure.h"
#include "Portal.h"
#include "Rows.h"

#include <velmora/CloudAPI.h>
#include <velmora/CloudAPIFlat.h>

#include <QCoreApplication>
#include <QHash>
#include <QJsonDocument>
#include <QLoggingCategory>

#include <algorithm>
#include <cstdio>
#include <memory>

namespace {

using namespace Bench;

void turnUntil(const std::function<bool()> &condition)
{
    for (int i = 0; i < 60000 && !condition(); i += 5)
        turnFor(5);
    require(condition(), "waited in vain");
}

QJsonArray jobs(int count)
{
    QJsonArray list;
    for (int i = 0; i < count; ++i) {
        const QString id = QStringLiteral("job-%1").arg(i, 8, 16, QLatin1Char('0'));
        QJsonArray simulations, history;
        for (int n = 1; n <= 3; ++n) {
            const QString simulation = QStringLiteral("sim-%1").arg(n);
            simulations.append(
                QJsonObject{{QStringLiteral("simulationId"), simulation},
                            {QStringLiteral("consoleParameters"), QStringLiteral("-speed %1 -angle 2.5").arg(n * 10)},
                            {QStringLiteral("simulationStatus"),
                             QJsonArray{QJsonObject{{QStringLiteral("jobId"), id},
                                                    {QStringLiteral("simulationId"), simulation},
                                                    {QStringLiteral("simulationStatus"), QStringLiteral("FINISHED")},
                                                    {QStringLiteral("simulationStatusDate"), 1764000000000.0 + i}}}}});
            history.append(QJsonObject{{QStringLiteral("jobId"), id},
                                       {QStringLiteral("jobStatus"), QStringLiteral("RUNNING")},
                                       {QStringLiteral("jobStatusDate"), 1764000000000.0 + n}});
        }
        list.append(QJsonObject{{QStringLiteral("jobId"), id},
                                {QStringLiteral("accountId"), QStringLiteral("ACC-1001")},
                                {QStringLiteral("jobName"), QStringLiteral("Sweep of the hull, run %1").arg(i)},
                                {QStringLiteral("mainFile"), QStringLiteral("hull-%1.trninp").arg(i)},
                                {QStringLiteral("coresRequired"), 64},
                                {QStringLiteral("simulations"), simulations},
                                {QStringLiteral("jobStatus"), history}});
    }
    return list;
}

QJsonArray files(int count)
{
    QJsonArray list;
    for (int i = 0; i < count; ++i) {
        const QString name = QStringLiteral("sim-1/field-%1.dat").arg(i);
        const QJsonObject piece{
            {QStringLiteral("fileName"), name + QStringLiteral("._00001_00001")},
            {QStringLiteral("method"), QStringLiteral("GET")},
            {QStringLiteral("uri"),
             QStringLiteral("https://127.0.0.1/storage/%1?s=%2").arg(i).arg(QString(80, QLatin1Char('f')))}};
        list.append(QJsonObject{{QStringLiteral("jobId"), QStringLiteral("job-1")},
                                {QStringLiteral("fileName"), name},
                                {QStringLiteral("fileSize"), 1048592},
                                {QStringLiteral("fileHash"), QString(64, QLatin1Char('a'))},
                                {QStringLiteral("downloadRequest"), QJsonArray{piece}}});
    }
    return list;
}

struct Client {
    Velmora::CloudAPI api;

    explicit Client(const Portal &portal)
    {
        qputenv("VELMORA_API_URL", portal.host().toUtf8());
        api.logUserIn(portal.user().toStdString(), portal.password().toStdString(), "", {});
        turnUntil([&] { return api.isUserLoggedIn(); });
    }
};

using Received = std::function<void(std::size_t)>;

// A flat callback finds it by its handle.
template <class Result> std::size_t sizeOf(const std::list<Result> *list) { return list->size(); }
std::size_t sizeOf(const char *text) { return qstrlen(text); }
template <class Error, class Result> void onFlat(Error /*error*/, Result result)
{
    (*static_cast<Received *>(userData(currentCloudAPI())))(sizeOf(result));
}

/// The longest pause of each round while the service sends `list`.
void listing(Portal &portal, const char *what, const QJsonArray &list, int rounds,
             const std::function<void(Velmora::CloudAPI &, const Received &)> &ask)
{
    const QByteArray body = QJsonDocument(list).toJson(QJsonDocument::Compact);
    const QByteArray answer =
        "HTTP/1.1 200 OK\r\nContent-Type: application/json\r\nContent-Length: " + QByteArray::number(body.size()) +
        "\r\n\r\n" + body;
    Client client(portal);
    std::vector<double> pauses, idle;
    for (int round = 0; round <= rounds; ++round) {
        portal.inject({{QStringLiteral("kind"), QStringLiteral("raw")},
                       {QStringLiteral("path"), QStringLiteral("*")},
                       {QStringLiteral("body"), QString::fromUtf8(answer)}});
        Pauses before;
        turnFor(300);
        idle.push_back(before.longest());
        Pauses while_;
        std::size_t received = 0;
        Received receive = [&](std::size_t count) { received = count; };
        setUserData(&client.api, &receive);
        ask(client.api, receive);
        turnUntil([&] { return received > 0; });
        turnFor(50); // what is left to be released
        pauses.push_back(while_.longest());
        require(received >= std::size_t(list.size()), "the listing is not complete");
    }
    pauses.erase(pauses.begin()); // what is loaded and allocated once and for all
    std::sort(pauses.begin(), pauses.end());
    std::sort(idle.begin(), idle.end());
    std::printf("| %s, %d entries, %.1f MB | %.1f ms (%.1f to %.1f) | %.1f ms |\n", what, list.size(),
                double(body.size()) * 1e-6, pauses[pauses.size() / 2], pauses.front(), pauses.back(),
                idle[idle.size() / 2]);
    std::fflush(stdout);
}

void listings(Portal &portal, int count, int rounds)
{
    std::printf(
        "\n| Listing | longest pause of the owner's loop, median of %d (range); goal: 16 ms | of the idle loop |\n"
        "|---|---|---|\n",
        rounds);
    listing(portal, "getAllJobDetails", jobs(count), rounds, [](auto &api, const auto &done) {
        api.getAllJobDetails([done](const auto &, const auto &list) { done(list.size()); });
    });
    listing(portal, "getUsersFileList", files(count), rounds, [](auto &api, const auto &done) {
        api.getUsersFileList(true, [done](const auto &, const auto &list) { done(list.size()); });
    });
    listing(portal, "getAllJobDetails, flat", jobs(count), rounds,
            [](auto &api, const auto &) { getAllJobDetails(&api, onFlat); });
    listing(portal, "getAllJobDetails_Json", jobs(count), rounds,
            [](auto &api, const auto &) { getAllJobDetails_Json(&api, onFlat); });
    listing(portal, "getUsersFileList, flat", files(count), rounds,
            [](auto &api, const auto &) { getUsersFileList(&api, true, onFlat); });
    listing(portal, "getUsersFileList_Json", files(count), rounds,
            [](auto &api, const auto &) { getUsersFileList_Json(&api, true, onFlat); });
}

void subscriptions(Portal &portal, int count)
{
    Client client(portal);
    QStringList ids;
    for (int i = 0; i < count; ++i)
        ids.append(portal.newJob());
    turnFor(200);
    const long before = memory("VmRSS:");
    std::size_t ended = 0;
    const auto count_ = [&](const Velmora::ApiError &, const std::string &, const std::string &) { ++ended; };
    QElapsedTimer clock;
    clock.start();
    for (const QString &id : qAsConst(ids))
        client.api.subscribeToJob(id.toStdString(), {}, count_);
    const auto pinged = [&] {
        int open = 0, pings = 0;
        for (const QJsonValue &socket : portal.sockets()) {
            open += socket.toObject()[QStringLiteral("open")].toBool();
            pings += socket.toObject()[QStringLiteral("pings")].toArray().size();
        }
        return std::make_pair(open, pings);
    };
    while (pinged().first < count)
        turnFor(200);
    const double opened = double(clock.elapsed()) * 1e-3;
    const long grown = memory("VmRSS:") - before;
    Pauses beat;
    turnFor(30000 - int(clock.elapsed()) % 25000); // one heartbeat of 25 s at least
    const double longest = beat.longest();
    std::printf("| Subscriptions | all open after | memory of each | longest pause within a heartbeat | pings | "
                "ended |\n|---|---|---|---|---|---|\n| %d | %.1f s | %.1f KiB | %.1f ms | %d | %zu |\n",
                count, opened, double(grown) / count, longest, pinged().second, ended);
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    QLoggingCategory::setFilterRules(QStringLiteral("velmora.debug=false"));
    QHash<QString, int> options = {
        {QStringLiteral("--jobs"), 10000}, {QStringLiteral("--subscriptions"), 1000}, {QStringLiteral("--rounds"), 7}};
    const QStringList arguments = QCoreApplication::arguments().mid(1);
    require(arguments.size() % 2 == 0, "an option takes a value");
    for (int i = 0; i < arguments.size(); i += 2) {
        require(options.contains(arguments[i]), "unknown option " + arguments[i].toStdString());
        options[arguments[i]] = arguments[i + 1].toInt();
    }
    Portal portal(QCoreApplication::applicationDirPath() + QStringLiteral("/velmora-portal"));
    if (const int count = options[QStringLiteral("--subscriptions")])
        subscriptions(portal, count); // first: nothing freed is there to be used again
    if (const int count = options[QStringLiteral("--jobs")])
        listings(portal, count, options[QStringLiteral("--rounds")]);
    return 0;
}
