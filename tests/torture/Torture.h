#pragma once

// A case runs one or several operations of one session. Each meets a fault while the application performs an action.
// The seed determines the whole case. `Case::run` verifies what must hold afterwards. In every tenth case another
// session works on a thread of its own.
//
// A case reads as OPERATION / FAULT / ACTION, as in "uploadFile / cut upload / destroy", steps joined by ", then ".

#include "DiskCalls.h"
#include "support/AnyCompletion.h"
#include "support/ProxyServer.h"
#include "support/TestFolder.h"

#include "portal/Portal.h"

#include <random>

namespace Torture {

using std::string;
using namespace std::literals;
using PortalFault = VelmoraPortal::Fault;
using VelmoraPortal::FaultKind;

struct Random {
    std::size_t below(std::size_t count) { return std::uniform_int_distribution<std::size_t>(0, count - 1)(engine); }
    bool chance(int percent) { return below(100) < std::size_t(percent); }
    template <class List> auto &of(List &list) { return list[below(std::size(list))]; }
    string bytes(std::size_t size)
    {
        string text(size, '\0');
        std::generate(text.begin(), text.end(), [this] { return char(engine() >> 32); });
        return text;
    }

    std::mt19937_64 engine;
};

/// What the process has in use.
struct Resources {
    int threads = 0, descriptors = 0;
    bool fits(const Resources &most) const { return threads <= most.threads && descriptors <= most.descriptors; }
};
Resources resources();

/// A call of the disk that fails, once or every time.
struct DiskFault {
    DiskCall call = DiskCall::None;
    int error = 0; ///< errno, or `halfOnly`
    int skip = 0;  ///< so many such calls succeed first
    bool isPermanent = false;
};
/// How often the faults took effect.
struct DiskStrikes {
    int all = 0;
    int fatal = 0; ///< on what a transfer cannot do without: it must not succeed
};
void failDisk(const string &folder, const DiskFault &fault);
DiskStrikes restoreDisk();

inline const VelmoraPortal::SeededUser &ada = VelmoraPortal::seededUsers()[0];

inline constexpr char storedJob[] = "job-wing0001", storedFile[] = "sim-1/torture.bin";

/// What all cases share: a trusted portal and a folder.
struct Environment {
    Environment()
    {
        QLoggingCategory::setFilterRules(QStringLiteral("*=false\nvelmora.debug=true"));
        portal.addFile(storedJob, storedFile, stored);
    }

    LogCatcher log;
    /// Jobs are quick, pieces small.
    VelmoraPortal::Portal portal{VelmoraPortal::Options{0, {}, 200ms, 3600s, {{}, {}, 4096}, false, {}}};
    ScopedTrust trust{QByteArray::fromStdString(portal.caPem())};
    ScopedEnvironment address{"VELMORA_API_URL", QByteArray::fromStdString(portal.host())};
    TestFolder folder;
    Resources most;                                          ///< that may be in use after a case; 0: not known yet
    string stored = Random{std::mt19937_64(1)}.bytes(20000); ///< of the file `storedJob`/`storedFile`, in pieces
};

/// One call of an operation and what came of it.
struct Call {
    string name;
    int completions = 0;
    int code = -1;        ///< of the last completion
    bool failed = false;  ///< and was not cancelled
    bool echoes = false;  ///< its result is a copy of its argument
    bool emptied = true;  ///< the result was a default-constructed one, or there was none
    string follows = {};  ///< a subscription's job: any number of messages and losses, and one end
    bool mustEnd = false; ///< a subscription that cannot be opened must report that
    bool muted = false;   ///< a finished subscription: no callback may run any more
    std::function<const char *(Environment &, bool succeeded)> verify = {}; ///< what is wrong; empty: nothing

    bool isFinished() const { return completions > 0; }
    bool succeeded() const { return code > 0 && code < 300; }
};

class Case;

/// An operation; `start` calls it once. Each path of the service is a stage at which a fault may be injected.
struct Operation {
    const char *name;
    std::vector<const char *> paths;
    std::function<void(Case &)> start;
};
extern const std::vector<Operation> operations;

struct Fault {
    const char *name;
    std::function<PortalFault(Random &)> portal; ///< without its path; empty: see `host`
    bool harmless = false;                       ///< the operation must succeed all the same
    bool silent = false;                         ///< no answer may ever come
    bool falseReply = false;                     ///< the service may report as done what it did not do
    enum Host { Portal, Refused, Unreachable, NoTls, Distrusted, Socks, Http, ProxyRefuses, ProxyCloses } host = Portal;
    bool socket = false; ///< for sockets only
    DiskCall disk = DiskCall::None;
    int error = 0; ///< errno of the disk, or `halfOnly`
};
extern const std::vector<Fault> faults;

struct Step;

/// What the application does meanwhile.
struct Action {
    const char *name;
    std::function<void(Case &, const Step &)> run;
    bool disturbs = true; ///< may make an operation fail
};
extern const std::vector<Action> actions;

struct Step {
    const Operation *operation = nullptr;
    const Fault *fault = nullptr;
    const Action *action = nullptr;
};

class Case {
public:
    Case(Environment &environment, std::uint64_t seed);
    ~Case()
    {
        destroy();
        environment.portal.clearFaults();
        environment.folder.remove("case");
    }

    /// @return what went wrong; empty when all that was promised held
    string run(const std::vector<Step> &steps);
    static string describe(const std::vector<Step> &steps);
    int strikes() const { return m_strikes.all; } ///< of the disk

    // For operations and actions.
    Environment &environment;
    Random random;
    std::unique_ptr<Velmora::CloudAPI> api;
    string job; ///< an id of the service's, not submitted

    Call &call(const string &name) { return m_calls.emplace_back(Call{name}); }
    string path(const string &name) const { return environment.folder.path("case/" + name); }
    string write(const string &name, const string &bytes) const
    {
        return DiskPause(), environment.folder.write("case/" + name, bytes);
    }
    string read(const string &name) const { return DiskPause(), environment.folder.read("case/" + name); }
    void completed(Call &call, const Velmora::ApiError &error, bool emptied);
    void progressed(Call &call);
    void mute(const string &followed = {});      ///< the job's subscriptions so far have finished; of no job: all
    bool cannotOpen() const { return m_nobody; } ///< no socket any more
    bool cannotAsk() const { return m_nobody || m_deaf; }
    bool isDisturbed() const { return m_disturbed; }
    /// A callback that runs inside the destructor already finds no session.
    void destroy() { const std::unique_ptr<Velmora::CloudAPI> last = std::move(api); }
    void fail(const string &reason) { m_failure += m_failure.empty() ? reason : "; " + reason; }
    void failIf(bool wrong, const string &reason) { wrong ? fail(reason) : void(); }
    std::map<string, int> uploads;              ///< how many of each file name
    std::map<string, Call *> followers;         ///< the latest `followJob` of each job
    std::map<string, int> refusals;             ///< codes that the service may rightly answer with
    std::vector<std::function<void()>> cancels; ///< cancel what the operations started

private:
    void inject(const Step &step);
    void perform(const Step &step);
    void performInCallback();
    void schedule(const Step &step); ///< performs the action now, in the next callback, or a little later
    void waitForAll();
    void verify(const std::vector<Step> &steps);
    void searchTargets(bool pieces);
    void searchForSecrets();

    QObject m_timers; ///< the context of the case's timers
    std::list<Call> m_calls;
    std::vector<Step> m_inCallback;             ///< actions that wait for the next callback
    std::vector<std::shared_ptr<void>> m_route; ///< what leads to the service otherwise: one fault's of a case
    bool m_nobody = false;                      ///< no socket can be opened any more
    bool m_deaf = false;                        ///< nor can anything be asked
    bool m_disturbed = false;                   ///< an action may have made an operation fail
    std::size_t m_jobsBefore = 0;
    DiskStrikes m_strikes;
    const bool m_hasSecond; ///< another session, on another thread
    string m_texts;         ///< of all errors that the application received
    string m_failure;
};

/// A completion callback that reports to the case.
inline AnyCompletion watch(Case &test, Call &call)
{
    return {[&test, &call](const Velmora::ApiError &error, const QJsonValue &, bool isDefault) {
        test.completed(call, error, isDefault);
    }};
}

} // namespace Torture
