/// @file Soak.cpp
/// Hours of mixed work through one session with robust options: jobs submitted and followed, requests, transfers,
/// renewals every few seconds, with faults all the time. It prints the resources of the process while it runs.
///
///     velmora_soak_bench [--seconds N] [--subscriptions N] [--every SECONDS] [--seed N]
///
/// Exits with 1 if a call was not answered exactly once, an operation was lost to a renewal (the service knew no user),
/// a job's end was missed, a transfer failed, a file came back changed, or memory, threads or descriptors grew from the
/// third quarter to the last. The first half does not count: addresses of files are kept for half an hour, so their
/// number grows until then.
#include "Measure.h"
#include "Portal.h"
#include "Rows.h"

#include <velmora/CloudAPI.h>

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QHash>
#include <QLoggingCategory>
#include <QTemporaryDir>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <random>

#include <malloc.h>

namespace {

using namespace Bench;
using Velmora::ApiError;

int entries(const char *folder) { return int(QDir(QString::fromLatin1(folder)).count()); }

struct Counts {
    long calls = 0, answers = 0, refused = 0, twice = 0;
    long unauthorised = 0; ///< answers with status 401
    long jobs = 0, finished = 0, otherEnds = 0, updates = 0;
    long transfers = 0, transfersFailed = 0, changed = 0;
    long faults = 0, renewals = 0, sessionsLost = 0;
};

struct Sample {
    long memory; ///< resident, in KiB
    long heap;   ///< KiB of it in use, without what the allocator keeps for later
    int descriptors, threads;
};

class Soak {
public:
    Soak(Portal &portal, int subscriptions, unsigned int seed)
        : m_portal(portal)
        , m_random(seed)
        , m_subscriptions(subscriptions)
    {
        m_api.setClientOptions(Velmora::ClientOptions::robust());
        m_api.onSessionChanged([this](Velmora::SessionChange change) {
            counts.renewals += change == Velmora::SessionChange::Renewed;
            counts.sessionsLost += change == Velmora::SessionChange::RenewalFailed;
        });
        m_api.logUserIn(m_portal.user().toStdString(), m_portal.password().toStdString(), "", {});
    }

    void start()
    {
        for (int i = 0; i < m_subscriptions * 9 / 10; ++i)
            after(below(30000), [this] { nextJob(); });
        for (int i = m_subscriptions * 9 / 10; i < m_subscriptions; ++i)
            followQuietJob();
        every(100, [this] { ask(); });
        every(2000, [this] { injectFault(); });
        transfer();
    }
    /// No new work; what is under way ends.
    void stop() { m_stopping = true; }
    bool isIdle() const { return counts.calls == counts.answers && m_open == 0 && !m_transferring; }

    Counts counts;

private:
    std::size_t below(std::size_t count) { return m_random() % count; }
    void after(std::size_t milliseconds, const std::function<void()> &then)
    {
        QTimer::singleShot(int(milliseconds), &m_timers, then);
    }
    void every(int milliseconds, const std::function<void()> &then)
    {
        auto *timer = new QTimer(&m_timers);
        QObject::connect(timer, &QTimer::timeout, then);
        timer->start(milliseconds);
    }

    /// A callback that counts itself, and calls `then` with success or not, and the result.
    template <class Then> auto answered(Then then)
    {
        ++counts.calls;
        return [this, then, times = std::make_shared<int>(0)](const ApiError &error, const auto &...result) {
            ++counts.answers;
            counts.twice += ++*times > 1;
            const bool good = Velmora::succeeded(error);
            counts.refused += !good;
            counts.unauthorised += error.errorCode == 401;
            then(good, result...);
        };
    }

    void nextJob()
    {
        if (m_stopping)
            return;
        m_api.generateNewJobID("ACC-1001", answered([this](bool good, const std::string &id) {
                                   if (good && !id.empty())
                                       submit(id);
                                   else
                                       after(500, [this] { nextJob(); });
                               }));
    }

    void submit(const std::string &id)
    {
        Velmora::JobSubmit job;
        job.jobID = id;
        job.accountID = "ACC-1001";
        job.jobName = "Soak";
        job.mainFile = "soak.trninp";
        job.simulations = {"-x 1", "-x 2"};
        job.coresRequired = job.coreHourEstimate = 1;
        job.ramEstimate = 1024;
        job.originApplication = "soak";
        m_api.submitNewJob(job, answered([this, id](bool good, const Velmora::JobDetails &details) {
                               if (!good || details.jobId.empty()) // perhaps submitted, perhaps not: another one
                                   return after(500, [this] { nextJob(); });
                               ++counts.jobs;
                               ++m_open;
                               follow(id);
                           }));
    }

    void follow(const std::string &id)
    {
        m_api.followJob(
            id, [this](const auto &) { ++counts.updates; },
            [this](const ApiError &error, const auto &) {
                ++(Velmora::succeeded(error) ? counts.finished : counts.otherEnds);
                --m_open;
                after(below(1000), [this] { nextJob(); });
            });
    }

    /// No message ever comes, so the library reconnects after four heartbeats.
    void followQuietJob()
    {
        const std::string id = m_portal.newJob().toStdString();
        m_api.subscribeToJob(id, {}, {});
        every(120000, [this, id] { m_api.subscribeToJob(id, {}, {}); });
    }

    void ask()
    {
        if (m_stopping)
            return;
        const auto done = [](bool, const auto &...) {};
        switch (below(6)) {
        case 0:
            return m_api.getAccountList(answered(done));
        case 1:
            return m_api.getAccountBalance("ACC-1001", answered(done));
        case 2:
            return m_api.getJobDetails("job-wing0001", answered(done));
        case 3:
            return m_api.getJobProgress("job-wing0001", answered(done));
        case 4:
            return m_api.tagJob("job-wing0001", "soak", answered(done));
        default:
            return m_api.getCurrentUserDetails(answered(done));
        }
    }

    void injectFault()
    {
        if (m_stopping) // faults that nobody meets pile up before the renewals
            return;
        static const char *const kinds[] = {"status",      "delay",  "cutHead",   "cutBody",    "resetAfter",
                                            "resetBefore", "hangUp", "cutUpload", "socketDrop", "socketClose"};
        const QString kind = QString::fromLatin1(kinds[below(10)]);
        QJsonObject fault{{QStringLiteral("kind"), kind}};
        if (kind == QLatin1String("cutUpload"))
            fault.insert(QStringLiteral("path"), QStringLiteral("storage"));
        else if (!kind.startsWith(QLatin1String("socket")))
            fault.insert(QStringLiteral("path"), QString::fromLatin1(below(4) == 0 ? "storage" : "*"));
        if (kind == QLatin1String("delay"))
            fault.insert(QStringLiteral("delay"), int(below(3000)));
        m_portal.inject(fault);
        ++counts.faults;
    }

    /// Uploads a file, downloads it again and compares.
    void transfer()
    {
        if (m_stopping)
            return;
        m_transferring = true;
        ++counts.transfers;
        // A new name each time: addresses of a replaced file stay cached for a while.
        const std::string name = "source" + std::to_string(counts.transfers);
        const std::string source = path(name), target = path("target");
        writePlain(source, 1 + below(3 << 20));
        const auto over = [this, name, source](bool good) {
            counts.transfersFailed += !good;
            QFile::remove(QString::fromStdString(source));
            m_api.deleteFile({m_job, "", name}, answered([](bool, const auto &) {}));
            m_transferring = false;
            after(500, [this] { transfer(); });
        };
        m_api.uploadFile({source, m_job, 0}, {}, answered([this, over, name, source, target](bool sent, const auto &) {
                             if (!sent)
                                 return over(false);
                             const Velmora::CloudFile stored{m_job, name, 0, 0, {}, false};
                             m_api.downloadFile({target, stored}, {}, answered([=](bool got, const auto &) {
                                                    counts.changed += got && bytes(source) != bytes(target);
                                                    over(got);
                                                }));
                         }));
    }

    std::string path(const std::string &name) const
    {
        return m_folder.filePath(QString::fromStdString(name)).toStdString();
    }
    static QByteArray bytes(const std::string &path)
    {
        QFile file(QString::fromStdString(path));
        require(file.open(QIODevice::ReadOnly), "cannot read " + path);
        return file.readAll();
    }

    Portal &m_portal;
    std::mt19937 m_random;
    const int m_subscriptions;
    QTemporaryDir m_folder;
    const std::string m_job = m_portal.newJob().toStdString();
    bool m_stopping = false, m_transferring = false;
    int m_open = 0; ///< jobs submitted whose end is not known
    Velmora::CloudAPI m_api;
    QObject m_timers; ///< last, so that it is destroyed first and starts nothing more
};

/// The median of a quarter of the samples.
template <class Member> double quarter(const std::vector<Sample> &samples, std::size_t which, Member member)
{
    std::vector<double> values;
    for (std::size_t i = samples.size() * which / 4; i < samples.size() * (which + 1) / 4; ++i)
        values.push_back(double(samples[i].*member));
    require(!values.empty(), "too short a run to say anything");
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

template <class Member> bool flat(const std::vector<Sample> &samples, const char *what, double allowed, Member member)
{
    const double third = quarter(samples, 2, member), last = quarter(samples, 3, member);
    std::printf("%s: first quarter %.0f, third %.0f, last %.0f (medians)\n", what, quarter(samples, 0, member), third,
                last);
    return last - third <= allowed;
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    QLoggingCategory::setFilterRules(QStringLiteral("*.debug=false"));
    QHash<QString, int> options = {{QStringLiteral("--seconds"), 3600},
                                   {QStringLiteral("--subscriptions"), 200},
                                   {QStringLiteral("--every"), 60},
                                   {QStringLiteral("--seed"), 1}};
    const QStringList arguments = QCoreApplication::arguments().mid(1);
    require(arguments.size() % 2 == 0, "an option takes a value");
    for (int i = 0; i < arguments.size(); i += 2) {
        require(options.contains(arguments[i]), "unknown option " + arguments[i].toStdString());
        options[arguments[i]] = arguments[i + 1].toInt();
    }
    // The portal holds 10,000 jobs. With 90 seconds for each, an hour makes fewer.
    Portal portal(QCoreApplication::applicationDirPath() + QStringLiteral("/velmora-portal"),
                  {QStringLiteral("--job-duration"), QStringLiteral("90"), QStringLiteral("--token-lifetime"),
                   QStringLiteral("9")});
    qputenv("VELMORA_API_URL", portal.host().toUtf8());
    Soak soak(portal, options[QStringLiteral("--subscriptions")], unsigned(options[QStringLiteral("--seed")]));
    turnFor(1000);
    soak.start();
    std::vector<Sample> samples;
    QElapsedTimer clock;
    clock.start();
    std::printf("seconds,rss KiB,heap KiB,descriptors,threads,calls,answers,refused,unauthorised,jobs,finished,"
                "other ends,updates,transfers,failed,faults,renewals,sessions lost\n");
    while (clock.elapsed() < options[QStringLiteral("--seconds")] * 1000LL) {
        turnFor(options[QStringLiteral("--every")] * 1000);
        const Counts &c = soak.counts;
        samples.push_back({memory("VmRSS:"), long(::mallinfo2().uordblks / 1024), entries("/proc/self/fd"),
                           entries("/proc/self/task")});
        std::printf("%lld,%ld,%ld,%d,%d,%ld,%ld,%ld,%ld,%ld,%ld,%ld,%ld,%ld,%ld,%ld,%ld,%ld\n", clock.elapsed() / 1000,
                    samples.back().memory, samples.back().heap, samples.back().descriptors, samples.back().threads,
                    c.calls, c.answers, c.refused, c.unauthorised, c.jobs, c.finished, c.otherEnds, c.updates,
                    c.transfers, c.transfersFailed, c.faults, c.renewals, c.sessionsLost);
        std::fflush(stdout);
    }
    soak.stop();
    for (int i = 0; i < 240 && !soak.isIdle(); ++i)
        turnFor(500);
    const Counts &c = soak.counts;
    std::printf(
        "calls %ld, answers %ld, answered twice %ld, unauthorised %ld; renewals %ld, sessions lost %ld; jobs %ld, "
        "finished %ld, other ends %ld; transfers %ld, failed %ld, files changed %ld\n",
        c.calls, c.answers, c.twice, c.unauthorised, c.renewals, c.sessionsLost, c.jobs, c.finished, c.otherEnds,
        c.transfers, c.transfersFailed, c.changed);
    const bool grew =
        !flat(samples, "rss KiB", 2048, &Sample::memory) | !flat(samples, "heap KiB", 1024, &Sample::heap) |
        !flat(samples, "descriptors", 12, &Sample::descriptors) | !flat(samples, "threads", 2, &Sample::threads);
    const bool missed = !soak.isIdle() || c.twice + c.unauthorised + c.sessionsLost + c.changed > 0 ||
                        c.jobs != c.finished || c.transfersFailed > 0;
    std::printf("%s\n", missed ? "something was missed" : grew ? "something has grown" : "nothing missed, flat");
    return missed || grew ? 1 : 0;
}
