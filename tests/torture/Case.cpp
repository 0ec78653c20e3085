#include "Torture.h"

#include <QDirIterator>
#include <QElapsedTimer>
#include <QLoggingCategory>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTimer>

using namespace Velmora;

namespace Torture {

namespace {

int entries(const char *folder) { return int(QDir(QString::fromUtf8(folder)).count()); }

/// Listens, and speaks no TLS to whoever comes.
std::unique_ptr<QTcpServer> plainServer()
{
    auto server = std::make_unique<QTcpServer>();
    server->listen(QHostAddress::LocalHost);
    QObject::connect(server.get(), &QTcpServer::newConnection, [from = server.get()] {
        while (QTcpSocket *socket = from->nextPendingConnection()) {
            socket->write("HTTP/1.1 400 Bad Request\r\nContent-Length: 0\r\n\r\n");
            socket->disconnectFromHost();
        }
    });
    return server;
}

QByteArray hostAt(const char *name, int port) { return QByteArray(name) + ':' + QByteArray::number(port); }

VelmoraPortal::Options options()
{
    VelmoraPortal::Options options;
    options.jobDuration = std::chrono::milliseconds(200);
    options.storage.pieceSize = 4096;
    return options;
}

} // namespace

Resources resources() { return {entries("/proc/self/task"), entries("/proc/self/fd")}; }

S Random::bytes(std::size_t size)
{
    S text(size, '\0');
    for (char &byte : text)
        byte = char(m_engine() >> 32);
    return text;
}

World::World()
    : portal(options())
    , trust(QByteArray::fromStdString(portal.caPem()))
    , address("VELMORA_API_URL", QByteArray::fromStdString(portal.host()))
    , stored(Random(1).bytes(20000))
{
    QLoggingCategory::setFilterRules(QStringLiteral("*=false\nvelmora.debug=true"));
    portal.addFile(storedJob, storedFile, stored);
}

Case::Case(World &itsWorld, std::uint64_t seed)
    : world(itsWorld)
    , random(seed)
    , m_folder(world.folder.filePath(QStringLiteral("case")))
{
    QDir(m_folder).mkpath(QStringLiteral("tmp"));
    QDir(m_folder).mkpath(QStringLiteral("to"));
    if (random.chance(50))
        write("to/result.bin", random.bytes(100));
}

Case::~Case()
{
    destroy();
    world.portal.clearFaults();
    QDir(m_folder).removeRecursively();
}

S Case::path(const S &name) const { return QDir(m_folder).filePath(QString::fromStdString(name)).toStdString(); }

S Case::write(const S &name, const S &bytes) const
{
    const DiskPause pause;
    QFile file(QString::fromStdString(path(name)));
    if (!file.open(QIODevice::WriteOnly) || file.write(bytes.data(), qint64(bytes.size())) != qint64(bytes.size()))
        qFatal("cannot write %s", name.c_str());
    return path(name);
}

Call &Case::call(const S &name)
{
    m_calls.push_back(std::make_unique<Call>());
    m_calls.back()->name = name;
    return *m_calls.back();
}

void Case::fail(const S &reason) { m_failure += m_failure.empty() ? reason : "; " + reason; }

void Case::completed(Call &call, const ApiError &error, bool emptied)
{
    ++call.completions;
    call.code = error.errorCode;
    call.emptied = emptied;
    call.failed = call.code >= 300 && error.errorTitle != "Download Cancelled";
    if (!call.succeeded()) // with a sign-in's success the host gets the service's answer
        m_texts += error.errorTitle + '\n' + error.errorMessage + '\n';
    if (!api)
        fail(call.name + " completed after destruction");
    if (call.muted)
        fail(call.name + " ended after its end");
    if (call.follows.empty() && call.completions > 1)
        fail(call.name + " completed more than once");
    if (!call.succeeded() && !emptied && !call.echoes)
        fail(call.name + " gave a result with code " + std::to_string(call.code));
    if (error.errorCode >= 300 && error.errorTitle.empty())
        fail(call.name + " failed without a title");
    if (!call.follows.empty() && call.code == 200)
        mute(call.follows);
    actInCallback();
}

void Case::progressed(Call &call)
{
    if (!api)
        fail(call.name + " spoke after destruction");
    if (call.muted)
        fail(call.name + " spoke after its end");
    if (call.follows.empty() && call.isOver())
        fail(call.name + " spoke after its completion");
    actInCallback();
}

void Case::actInCallback()
{
    if (m_inCallback.empty())
        return;
    const Step step = m_inCallback.back();
    m_inCallback.pop_back();
    act(step);
}

void Case::mute(const S &followed)
{
    for (auto &each : m_calls)
        each->muted = each->muted || (!followed.empty() && each->follows == followed);
}

void Case::destroy()
{
    // What runs inside its destructor is already too late.
    const std::unique_ptr<CloudAPI> last = std::move(api);
}

bool Case::prepare()
{
    const VelmoraPortal::SeededUser &user = VelmoraPortal::seededUsers()[0];
    bool answered = false;
    api = std::make_unique<CloudAPI>();
    api->logUserIn(user.email, user.password, "", [&](const ApiError &) { answered = true; });
    if (!waitUntil([&] { return answered; }) || !api->isUserLoggedIn())
        return false;
    answered = false;
    api->generateNewJobID("ACC-1001", [&](const ApiError &, const S &id) {
        answered = true;
        job = id;
    });
    return waitUntil([&] { return answered; }) && !job.empty();
}

void Case::strike(const Step &step)
{
    const Trouble &trouble = *step.trouble;
    if (trouble.disk != DiskCall::None) {
        failDisk(m_folder.toStdString(),
                 {trouble.disk, trouble.error, int(random.below(random.chance(70) ? 2 : 12)), random.chance(50)});
    } else if (trouble.fault) {
        Fault fault = trouble.fault(random);
        fault.path = random.of(step.deed->paths);
        if (trouble.silent)
            QTimer::singleShot(300, &m_timers, [this] { destroy(); });
        // A piece is wanted as it is stored, and refused when it comes compressed.
        m_disturbed = m_disturbed || (fault.kind == FaultKind::Gzip && fault.path == "storage");
        world.portal.inject(fault);
    } else if (trouble.host != Trouble::Portal && !m_host) {
        m_plain = plainServer();
        const int port = m_plain->serverPort();
        if (trouble.host == Trouble::Refused)
            m_plain->close();
        if (trouble.host == Trouble::Distrusted)
            m_distrust = std::make_unique<ScopedTrust>(testAuthority());
        m_nobody = trouble.host != Trouble::Distrusted;
        const char *const name = trouble.host == Trouble::Unreachable ? "127.255.255.255" // for broadcasts only
                                 : m_nobody                           ? "127.0.0.1"
                                                                      : "localhost";
        m_host =
            std::make_unique<ScopedEnvironment>("VELMORA_API_URL", hostAt(name, m_nobody ? port : world.portal.port()));
    }
}

void Case::act(const Step &step)
{
    if (!api)
        return;
    m_disturbed = m_disturbed || step.act->disturbs;
    step.act->run(*this, step);
}

void Case::actWhenItSuits(const Step &step)
{
    switch (random.below(3)) {
    case 0:
        return act(step);
    case 1:
        return m_inCallback.push_back(step);
    default:
        QTimer::singleShot(int(random.below(40)), &m_timers, [this, step] { act(step); });
    }
}

void Case::waitForAll()
{
    QElapsedTimer since;
    since.start();
    QTimer tick; // for the time limit of subscriptions
    tick.start(20);
    const bool over = waitUntil(
        [&] {
            bool all = true;
            for (const auto &each : m_calls)
                all = all && (each->isOver() ||
                              (!each->follows.empty() && (!each->mustEnd || each->muted) && since.elapsed() > 400));
            return !api || all;
        },
        60000); // dripping takes its time
    for (const auto &each : m_calls) {
        if (!over && !each->isOver() && (each->follows.empty() || each->mustEnd))
            fail(each->name + " did not complete");
    }
}

void Case::judge(const std::vector<Step> &steps)
{
    bool harmless = !m_disturbed, lies = false, removable = true, pieces = false;
    for (const Step &step : steps) {
        harmless = harmless && step.trouble->harmless;
        lies = lies || step.trouble->lies;
        removable = removable && step.trouble->disk != DiskCall::Remove;
    }
    std::size_t submits = 0;
    for (const auto &each : m_calls) {
        submits += each->name == "submitNewJob";
        pieces = pieces || (each->name == "downloadFile" && each->failed);
        if (harmless && each->follows.empty() && !each->succeeded() && each->code != refusals[each->name])
            fail(each->name + " failed with " + std::to_string(each->code));
        if (each->verdict) {
            const S wrong = each->verdict(world, each->succeeded() && !lies);
            if (!wrong.empty())
                fail(each->name + ": " + wrong);
        }
    }
    if (world.portal.jobCount() - m_jobsBefore > submits)
        fail("more jobs than submissions");
    if (removable && entries(path("tmp").c_str()) > 2)
        fail("temporary files left");
    if (removable)
        searchTargets(pieces);
    const Resources most = world.most;
    QTimer tick; // the portal's thread wakes nobody here
    tick.start(5);
    if (most.threads > 0 && !waitUntil([&] { return resources().fits(most); }, 5000))
        fail("left: " + std::to_string(resources().threads - most.threads) + " threads, " +
             std::to_string(resources().descriptors - most.descriptors) + " descriptors");
}

// What a download that failed of itself had received stays, for whoever looks for the reason.
void Case::searchTargets(bool pieces)
{
    QDirIterator each(QString::fromStdString(path("to")), QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
    while (each.hasNext()) {
        const S name = QFileInfo(each.next()).fileName().toStdString();
        if (name.find(".bin") + 4 != name.size() && (!pieces || name.find("JOIN") != S::npos))
            fail("left: " + name);
    }
}

// Neither the log nor an error may tell what opens an account, an address or a file.
void Case::searchForSecrets()
{
    const QByteArray key = QByteArray::fromStdString(world.portal.jobKey(storedJob));
    std::vector<S> secrets = {VelmoraPortal::seededUsers()[0].password, key.toBase64().toStdString(),
                              key.toHex().toStdString(), "ignature", "efreshToken"};
    for (const VelmoraPortal::SeenRequest &request : world.portal.requests()) {
        for (const char *name : {"Authorization", "X-Storage-Signature"}) {
            if (request.hasHeader(name))
                secrets.push_back(request.header(name));
        }
    }
    const S texts = m_texts + world.log.text();
    for (const S &secret : secrets) {
        if (texts.find(secret) != S::npos)
            return fail("told: " + secret);
    }
    world.portal.clearRequests();
    world.log.clear();
}

S Case::run(const std::vector<Step> &steps)
{
    const ScopedEnvironment temporary("TMPDIR", QByteArray::fromStdString(path("tmp")));
    m_jobsBefore = world.portal.jobCount();
    if (!prepare())
        return "cannot sign in";
    for (const Step &step : steps) {
        if (!api)
            break;
        strike(step);
        if (random.chance(50)) {
            step.deed->start(*this);
            if (api)
                actWhenItSuits(step);
        } else {
            actWhenItSuits(step);
            if (api)
                step.deed->start(*this);
        }
    }
    waitForAll();
    settle();
    destroy();
    mendDisk();
    m_host.reset();
    m_distrust.reset();
    m_plain.reset();
    settle();
    judge(steps);
    searchForSecrets();
    return m_failure;
}

S Case::describe(const std::vector<Step> &steps)
{
    S text;
    for (const Step &step : steps)
        text +=
            (text.empty() ? "" : ", then ") + S(step.deed->name) + " / " + step.trouble->name + " / " + step.act->name;
    return text;
}

} // namespace Torture
