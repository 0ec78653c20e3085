#include "Torture.h"

#include "support/Parts.h"

#include <thread>

using namespace Velmora;

namespace Torture {

namespace {

int entries(const char *folder) { return int(QDir(QString::fromUtf8(folder)).count()); }

/// Listens, and answers every client without TLS.
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

/// Another session, on a thread of its own. Whatever happens to the first one, what it begins completes once, unless
/// an answer never comes.
struct SecondSession {
    ~SecondSession() { thread.join(); }
    void run()
    {
        CloudAPI api;
        const TestFolder &folder = environment.folder;
        int lists = 0, downloads = 0, uploads = 0;
        api.logUserIn(ada.email, ada.password, "", [&](const ApiError &) {
            api.getAllJobDetails([&](auto &&...) { ++lists; });
            api.uploadFile({folder.write("second-up", "text"), storedJob, 0}, {}, [&](auto &&...) { ++uploads; });
            api.downloadFile({folder.path("second"), {storedJob, storedFile, 0, 0, {}, false}}, {},
                             [&](const ApiError &error, auto &&) {
                                 if (++downloads && succeeded(error) && folder.read("second") != environment.stored)
                                     problem = "the second session's download succeeded with another file";
                             });
        });
        const auto isShort = [&] { return std::min({lists, uploads, downloads}) == 0; };
        for (QDeadlineTimer deadline(60000); isShort() && !(stops && mayHang) && !deadline.hasExpired();)
            api.processEvents(10);
        api.processEvents(10);
        if ((isShort() && !mayHang) || std::max({lists, uploads, downloads}) > 1)
            problem = "the second session's operations did not complete once";
        ended = true;
    }

    Environment &environment;
    const bool mayHang;
    string problem = {};
    std::atomic<bool> stops{false}, ended{false};
    std::thread thread{[this] { run(); }};
};

} // namespace

Resources resources() { return {entries("/proc/self/task"), entries("/proc/self/fd")}; }

Case::Case(Environment &shared, std::uint64_t seed)
    : environment(shared)
    , random{std::mt19937_64(seed)}
    , m_hasSecond(seed % 10 == 9)
{
    for (const char *each : {"tmp", "to"})
        QDir().mkpath(QString::fromStdString(path(each)));
    if (random.chance(50))
        write("to/result.bin", random.bytes(100));
}

void Case::completed(Call &call, const ApiError &error, bool emptied)
{
    ++call.completions;
    call.code = error.errorCode;
    call.emptied = emptied;
    call.failed = call.code >= 300 && error.errorTitle != "Download Cancelled";
    if (!call.succeeded()) // the success of a sign-in hands over the service's answer
        m_texts += error.errorTitle + '\n' + error.errorMessage + '\n';
    failIf(!api, call.name + " completed after destruction");
    failIf(call.muted, call.name + " completed after the subscription had finished");
    failIf(call.follows.empty() && call.completions > 1, call.name + " completed more than once");
    failIf(!call.succeeded() && !emptied && !call.echoes,
           call.name + " returned a result with code " + std::to_string(call.code));
    failIf(error.errorCode >= 300 && error.errorTitle.empty(), call.name + " failed without a title");
    if (!call.follows.empty() && call.code == 200)
        mute(call.follows);
    performInCallback();
}

void Case::progressed(Call &call)
{
    failIf(!api, call.name + " reported progress after destruction");
    failIf(call.muted, call.name + " reported progress after the subscription had finished");
    failIf(call.follows.empty() && call.isFinished(), call.name + " reported progress after its completion");
    performInCallback();
}

void Case::performInCallback()
{
    if (m_inCallback.empty())
        return;
    const Step step = m_inCallback.back();
    m_inCallback.pop_back();
    perform(step);
}

void Case::mute(const string &followed)
{
    for (auto &each : m_calls)
        each.muted = each.muted || (!each.follows.empty() && (followed.empty() || each.follows == followed));
}

void Case::inject(const Step &step)
{
    const Fault &fault = *step.fault;
    if (fault.disk != DiskCall::None) {
        const bool isRare = fault.disk != DiskCall::Read && fault.disk != DiskCall::Write;
        const auto most = fault.disk == DiskCall::Rename ? 1 : isRare || random.chance(70) ? 2 : 12;
        failDisk(path({}), {fault.disk, fault.error, int(random.below(most)), random.chance(50)});
    } else if (fault.portal) {
        PortalFault atPortal = fault.portal(random);
        atPortal.path = random.of(step.operation->paths);
        if (fault.silent)
            QTimer::singleShot(300, &m_timers, [this] { destroy(); });
        // The library accepts a piece only as it is stored, not compressed, and where its end can be known.
        const bool spoilsPieces = atPortal.kind == FaultKind::Gzip || atPortal.kind == FaultKind::NoLength;
        m_disturbed = m_disturbed || (spoilsPieces && atPortal.path == "storage");
        environment.portal.inject(atPortal);
    } else if (fault.host >= Fault::Socks && m_route.empty()) {
        partsOf(*api).rest.setProxyWatchInterval(50);
        m_deaf = fault.host == Fault::ProxyCloses;
        m_nobody = fault.host == Fault::ProxyRefuses;
        m_route = {std::make_shared<ApplicationProxy>(
            environment.portal.port(), fault.host == Fault::Socks || (fault.host != Fault::Http && random.chance(50)),
            m_deaf ? 1000000 : 0, m_nobody ? "wrong" : "p:w")};
    } else if (fault.host != Fault::Portal && m_route.empty()) {
        const std::shared_ptr<QTcpServer> plain = plainServer();
        const int port = plain->serverPort();
        if (fault.host == Fault::Refused)
            plain->close();
        m_deaf = fault.host == Fault::Distrusted;
        m_nobody = !m_deaf;
        const char *const name = fault.host == Fault::Unreachable ? "127.255.255.255" // for broadcasts only
                                 : m_nobody                       ? "127.0.0.1"
                                                                  : "localhost";
        const QByteArray number = QByteArray::number(m_nobody ? port : environment.portal.port());
        m_route = {plain, std::make_shared<ScopedEnvironment>("VELMORA_API_URL", QByteArray(name) + ':' + number)};
        if (m_deaf)
            m_route.push_back(std::make_shared<ScopedTrust>(testAuthority()));
    }
}

void Case::perform(const Step &step)
{
    if (!api)
        return;
    m_disturbed = m_disturbed || step.action->disturbs;
    step.action->run(*this, step);
}

void Case::schedule(const Step &step)
{
    switch (random.below(3)) {
    case 0:
        return perform(step);
    case 1:
        return m_inCallback.push_back(step);
    default:
        QTimer::singleShot(int(random.below(40)), &m_timers, [this, step] { perform(step); });
    }
}

void Case::waitForAll()
{
    QElapsedTimer since;
    since.start();
    const auto mayRest = [&](const Call &each) {
        return each.isFinished() || (!each.follows.empty() && (!each.mustEnd || each.muted) && since.elapsed() > 400);
    };
    const auto areAll = [&] { return !api || std::all_of(m_calls.begin(), m_calls.end(), mayRest); };
    const bool finished = waitUntil(areAll, 60000); // long enough for the slowest answer, "drip"
    for (const auto &each : m_calls)
        failIf(!finished && !each.isFinished() && (each.follows.empty() || each.mustEnd),
               each.name + " did not complete");
}

void Case::verify(const std::vector<Step> &steps)
{
    bool harmless = !m_disturbed, falseReplies = false, removable = true, pieces = false;
    for (const Step &step : steps) {
        harmless = harmless && step.fault->harmless;
        falseReplies = falseReplies || step.fault->falseReply;
        removable = removable && step.fault->disk != DiskCall::Remove;
    }
    std::size_t submits = 0;
    const auto isTransfer = [](const auto &each) { return each.name.find("load") != string::npos; };
    const auto transfers = std::count_if(m_calls.begin(), m_calls.end(), isTransfer);
    for (const auto &each : m_calls) {
        submits += each.name == "submitNewJob";
        failIf(m_strikes.fatal > 0 && transfers == 1 && isTransfer(each) && each.succeeded(),
               each.name + " succeeded though the disk failed");
        pieces = pieces || (each.name == "downloadFile" && each.failed);
        failIf(harmless && each.follows.empty() && !each.succeeded() && each.code != refusals[each.name],
               each.name + " failed with " + std::to_string(each.code));
        const string wrong = each.verify ? each.verify(environment, each.succeeded() && !falseReplies) : "";
        failIf(!wrong.empty(), each.name + ": " + wrong);
    }
    failIf(environment.portal.jobCount() - m_jobsBefore > submits, "more jobs than submissions");
    failIf(removable && entries(path("tmp").c_str()) > 2, "temporary files left");
    if (removable)
        searchTargets(pieces);
    const Resources most = environment.most;
    if (most.threads > 0 && !waitUntil([&] { return resources().fits(most); }, 5000))
        fail("left behind: " + std::to_string(resources().threads - most.threads) + " threads, " +
             std::to_string(resources().descriptors - most.descriptors) + " descriptors");
}

// A download that failed, and was not cancelled, keeps the pieces that it has received.
void Case::searchTargets(bool pieces)
{
    for (const string &file : environment.folder.below("case/to")) {
        const string name = file.substr(file.rfind('/') + 1);
        const bool isTarget = name.size() > 4 && name.find(".bin") + 4 == name.size();
        failIf(!isTarget && (!pieces || name.find("UNCONFIRMED_DOWNLOAD.") != 0), "left behind: " + name);
    }
}

// Neither the log nor an error may hold a secret of an account, an address or a file.
void Case::searchForSecrets()
{
    const QByteArray key = QByteArray::fromStdString(environment.portal.jobKey(storedJob));
    std::vector<string> secrets = {ada.password, key.toBase64().toStdString(), key.toHex().toStdString(), "ignature",
                                   "efreshToken"};
    for (const VelmoraPortal::SeenRequest &request : environment.portal.requests())
        for (const char *name : {"Authorization", "X-Storage-Signature"})
            if (request.hasHeader(name))
                secrets.push_back(request.header(name));
    const string texts = m_texts + environment.log.text();
    for (const string &secret : secrets)
        failIf(texts.find(secret) != string::npos, "leaked: " + secret);
    environment.portal.clearRequests();
    environment.log.clear();
}

string Case::run(const std::vector<Step> &steps)
{
    const ScopedEnvironment temporary("TMPDIR", QByteArray::fromStdString(path("tmp")));
    m_jobsBefore = environment.portal.jobCount();
    QTimer tick; // other threads do not wake this event loop
    tick.start(5);
    api = std::make_unique<CloudAPI>();
    if (!signIn(*api, ada.email, ada.password))
        return "cannot sign in";
    api->generateNewJobID("ACC-1001", [&](const ApiError &, const string &id) { job = id; });
    if (!EVENTUALLY(!job.empty()))
        return "cannot get a job's id";
    std::unique_ptr<SecondSession> second;
    if (m_hasSecond)
        second.reset(new SecondSession{
            environment, std::any_of(steps.begin(), steps.end(), [](const Step &each) { return each.fault->silent; })});
    for (const Step &step : steps) {
        if (!api)
            break;
        inject(step);
        if (random.chance(50)) {
            step.operation->start(*this);
            if (api)
                schedule(step);
        } else {
            schedule(step);
            if (api)
                step.operation->start(*this);
        }
    }
    waitForAll();
    settle();
    destroy();
    m_strikes = restoreDisk();
    if (second) {
        second->stops = true;
        failIf(!waitUntil([&] { return bool(second->ended); }, 70000), "the second session did not end");
        failIf(!second->problem.empty(), second->problem);
    }
    second.reset();
    m_route.clear();
    settle();
    verify(steps);
    searchForSecrets();
    return m_failure;
}

string Case::describe(const std::vector<Step> &steps)
{
    string text;
    for (const Step &step : steps)
        text += (text.empty() ? "" : ", then ") + string(step.operation->name) + " / " + step.fault->name + " / " +
                step.action->name;
    return text;
}

} // namespace Torture
