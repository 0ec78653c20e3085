#pragma once

// A case: one or several operations of one session, each struck by a fault while the host does something
// else. All of a case follows from its seed. What must hold afterwards is checked by `Case::run`.

#include "support/AnyCompletion.h"
#include "support/Loopback.h"

#include "portal/Portal.h"

#include <velmora/CloudAPI.h>

#include <QTemporaryDir>

#include <functional>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

namespace Torture {

using S = std::string;
using VelmoraPortal::Fault;
using VelmoraPortal::FaultKind;

class Random {
public:
    explicit Random(std::uint64_t seed)
        : m_engine(seed)
    {
    }
    /// 0 to count - 1.
    std::size_t below(std::size_t count) { return std::uniform_int_distribution<std::size_t>(0, count - 1)(m_engine); }
    bool chance(int percent) { return below(100) < std::size_t(percent); }
    template <class List> auto &of(List &list) { return list[below(std::size(list))]; }
    S bytes(std::size_t size);

private:
    std::mt19937_64 m_engine;
};

/// What the process holds, give or take what all of them share.
struct Resources {
    int threads = 0, descriptors = 0;
    bool fits(const Resources &most) const { return threads <= most.threads && descriptors <= most.descriptors; }
};
Resources resources();

/// What the disk may refuse, once or for good.
enum class DiskCall { None, Open, Read, Write, Rename, Remove };
struct DiskFault {
    DiskCall call = DiskCall::None;
    int error = 0; ///< errno
    int skip = 0;  ///< so many such calls go well first
    bool forGood = false;
};
void failDisk(const S &folder, const DiskFault &fault);
void mendDisk();
/// For what the test itself does with files.
class DiskPause {
public:
    DiskPause();
    ~DiskPause();

private:
    Q_DISABLE_COPY(DiskPause)
    bool m_armed;
};

/// What all cases share: a portal, trusted, and a folder.
struct World {
    World();

    LogCatcher log;
    VelmoraPortal::Portal portal;
    ScopedTrust trust;
    ScopedEnvironment address;
    QTemporaryDir folder;
    Resources most; ///< that a case may leave in use; none: not known yet
    S stored;       ///< plain bytes of the file `storedJob`/`storedFile`, which comes in pieces
};
inline constexpr char storedJob[] = "job-wing0001", storedFile[] = "sim-1/torture.bin";

/// One call of an operation and what came of it.
struct Call {
    S name;
    int completions = 0;
    int code = -1;        ///< of the last completion
    bool failed = false;  ///< of itself: nobody cancelled it
    bool echoes = false;  ///< its result is a copy of what was asked for
    bool emptied = true;  ///< the result was a default-constructed one, or there was none
    S follows;            ///< a subscription's job: any number of messages and losses, and one end
    bool mustEnd = false; ///< a subscription that cannot be opened: its host is to be told
    bool muted = false;   ///< a subscription that is over: no callback may run any more
    std::function<S(World &, bool succeeded)> verdict; ///< what is wrong once all is over; empty: nothing

    bool isOver() const { return completions > 0; }
    bool succeeded() const { return code > 0 && code < 300; }
};

class Case;

/// An operation; `start` calls it once. Each path is a stage at which a fault may strike.
struct Deed {
    const char *name;
    std::vector<const char *> paths;
    std::function<void(Case &)> start;
};
const std::vector<Deed> &deeds();

struct Trouble {
    const char *name;
    std::function<Fault(Random &)> fault; ///< the path is still to be filled in; none: `host` speaks
    bool harmless = false;                ///< the operation must succeed nevertheless
    bool silent = false;                  ///< no answer may ever come
    bool lies = false;                    ///< the service may say that it did what it did not
    enum Host { Portal, Refused, Unreachable, NoTls, Distrusted } host = Portal;
    bool socket = false; ///< strikes sockets only
    DiskCall disk = DiskCall::None;
    int error = 0; ///< errno of the disk's refusal
};
const std::vector<Trouble> &troubles();

struct Step;

/// What a host does meanwhile.
struct Act {
    const char *name;
    std::function<void(Case &, const Step &)> run;
    bool disturbs = true; ///< may keep an operation from its success
};
const std::vector<Act> &acts();

struct Step {
    const Deed *deed = nullptr;
    const Trouble *trouble = nullptr;
    const Act *act = nullptr;
};

class Case {
public:
    Case(World &world, std::uint64_t seed);
    ~Case();

    /// @return what went wrong; empty when all that was promised held
    S run(const std::vector<Step> &steps);
    static S describe(const std::vector<Step> &steps);

    // For deeds.
    World &world;
    Random random;
    std::unique_ptr<Velmora::CloudAPI> api;
    S job; ///< an id of the service's, not submitted

    Call &call(const S &name);
    S path(const S &name) const;
    S write(const S &name, const S &bytes) const;
    void completed(Call &call, const Velmora::ApiError &error, bool emptied);
    void progressed(Call &call);
    void mute(const S &followed);                ///< the job's subscriptions so far are over
    bool cannotOpen() const { return m_nobody; } ///< no socket any more
    void destroy();
    void fail(const S &reason);
    std::map<S, int> uploads;                   ///< how many of each file name
    std::map<S, int> refusals;                  ///< codes that the service may answer with for good reason
    std::vector<std::function<void()>> cancels; ///< what the deeds know of cancelling

private:
    bool prepare();
    void strike(const Step &step);
    void act(const Step &step);
    void actInCallback();
    void actWhenItSuits(const Step &step);
    void waitForAll();
    void judge(const std::vector<Step> &steps);
    void searchTargets(bool pieces);
    void searchForSecrets();

    QString m_folder;
    QObject m_timers; ///< stands for the case where a timer asks for an object
    std::vector<std::unique_ptr<Call>> m_calls;
    std::vector<Step> m_inCallback; ///< acts that wait for the next callback
    std::unique_ptr<ScopedEnvironment> m_host;
    std::unique_ptr<ScopedTrust> m_distrust;
    std::unique_ptr<QTcpServer> m_plain;
    bool m_nobody = false;    ///< no socket can be opened any more
    bool m_disturbed = false; ///< an act may have kept an operation from its success
    std::size_t m_jobsBefore = 0;
    S m_texts; ///< what the host was told of errors
    S m_failure;
};

/// Tells the case.
inline AnyCompletion watch(Case &test, Call &call)
{
    return {[&test, &call](const Velmora::ApiError &error, const QJsonValue &, bool isDefault) {
        test.completed(call, error, isDefault);
    }};
}

} // namespace Torture
