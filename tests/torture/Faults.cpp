#include "Torture.h"

#include <cerrno>
#include <mutex>

#include <fcntl.h>

namespace Torture {

namespace {

std::mutex mutex;
DiskFault wanted; // None: spent
bool isFilling = false;
DiskStrikes struck;

// What the library cannot do without. Its folders' syncs and the removal of abandoned files come after the fact, and
// where the kernel cannot copy, the library does.
bool isFatal(const DiskUse &use)
{
    const bool isWorking = use.path.find("UNCONFIRMED_DOWNLOAD.") != string::npos;
    const bool isRemoved = use.path.find(" (deleted)") != string::npos;
    if (use.call == DiskCall::Open)
        return (use.flags & O_CREAT) || !(use.flags & (O_RDWR | O_DIRECTORY));
    const bool isSpare = isRemoved || use.call == DiskCall::Copy || use.call == DiskCall::Remove;
    return use.call == DiskCall::Read || (isWorking && !isSpare);
}

int strike(const DiskUse &use)
{
    const std::lock_guard lock(mutex);
    if (use.call == DiskCall::Copy && wanted.call == DiskCall::Read)
        return EXDEV; // makes the library read what it would let the kernel copy
    const bool isMeant = use.call == wanted.call || (use.call == DiskCall::Copy && wanted.call == DiskCall::Write);
    if (!isMeant || wanted.skip-- > 0)
        return 0;
    ++struck.all;
    if (wanted.error == ENOSPC && !std::exchange(isFilling, true))
        return halfOnly; // what still fits
    struck.fatal += wanted.error > 0 && isFatal(use);
    const int error = wanted.error;
    if (!wanted.isPermanent)
        wanted.call = DiskCall::None;
    return error;
}

using Wire = std::function<string(Random &)>;

string answerOf(const string &status, const string &body, const string &headers = "Content-Type: application/json\r\n")
{
    return "HTTP/1.1 " + status + "\r\n" + headers + "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" +
           body;
}

string redirection(const char *to) { return answerOf("302 Found", "", "Location: "s + to + "\r\n"); }

string anyStatus(Random &random)
{
    return answerOf(std::to_string(100 + random.below(500)) + " Odd", R"({"message":"odd"})");
}

/// Well-formed JSON without meaning, of every shape that a reader could fail on. An object has no key twice, as
/// Qt 5.15's reader leaks memory on some of those.
string nonsense(Random &random, int depth = 0)
{
    static const QStringList keys = QStringLiteral("jobId key plaintextKey uri method headers formFields fileName "
                                                   "downloadRequest idToken expiresIn simulations account taglist "
                                                   "tags simulationProgressList message fileSize \\u0000 ")
                                        .split(QLatin1Char(' '));
    const char *const values[] = {"null",          "true", "-1",     "1e999",         "9223372036854775808",
                                  "0.1",           "\"\"", "\"..\"", "\"a\\u0000b\"", "\"\\ud800\"",
                                  "\"https://[\"", "[]",   "{}",     "\"VELMORA\""};
    const std::size_t shape = random.below(depth > 4 ? 1 : 3);
    if (shape == 0)
        return random.of(values);
    string text;
    for (std::size_t i = random.below(5); i > 0; --i) {
        text += text.empty() ? "" : ",";
        text += shape == 1 ? "" : '"' + keys[int(i * 5 - 1 - random.below(5))].toStdString() + "\":";
        text += nonsense(random, depth + 1);
    }
    return shape == 1 ? '[' + text + ']' : '{' + text + '}';
}

/// A fault of the portal, filled in with the data of the case.
Fault portal(const char *name, FaultKind kind, const std::function<void(PortalFault &, Random &)> &fill)
{
    return {name, [kind, fill](Random &random) {
                PortalFault fault;
                fault.kind = kind;
                fill(fault, random);
                return fault;
            }};
}

/// An answer byte for byte.
Fault raw(const char *name, const Wire &wire, bool keepOpen = true)
{
    Fault made = portal(name, FaultKind::Raw, [=](PortalFault &fault, Random &random) {
        fault.body = wire(random);
        fault.keepOpen = keepOpen;
    });
    made.falseReply = true;
    return made;
}
Wire oneOf(const std::vector<string> &texts)
{
    return [texts](Random &random) { return random.of(texts); };
}

Fault plain(const char *name, FaultKind kind, bool harmless = false, bool silent = false)
{
    Fault made = portal(name, kind, [kind](PortalFault &fault, Random &random) {
        constexpr long bytes[] = {0, 1, 15, 16, 100, 4111, 4112, 4113, 100000};
        fault.bytes = kind == FaultKind::Gzip || kind == FaultKind::NoLength ? 0 : random.of(bytes);
        fault.delay = std::chrono::milliseconds(kind == FaultKind::Delay ? random.below(200) : 0);
        fault.rate = kind == FaultKind::Drip ? 20000 : 1000000;
    });
    made.harmless = harmless;
    made.silent = silent;
    return made;
}

Fault socket(const char *name, FaultKind kind, bool silent = false)
{
    Fault made = portal(name, kind, [](PortalFault &fault, Random &random) {
        constexpr int codes[] = {1000, 1001, 1002, 1003, 1007, 1008, 1009, 1011, 3000, 4000, 4999};
        const char *const reasons[] = {"", "Job status is FINISHED", "Job status is STOPPED", "bye"};
        // Invalid frames: a client may answer them in any way, but neither crash nor wait forever.
        const string frames[] = {"\x81\x7f\x7f\xff\xff\xff\xff\xff\xff\xff"s + random.bytes(100), // longer than memory
                                 "\x81\x7f\xff\xff\xff\xff\xff\xff\xff\xff"s, // with a negative length
                                 "\x81\x04\xff\xfe\xc3\x28"s,                 // not UTF-8
                                 "\x82\x03"s + random.bytes(3),               // binary
                                 "\xf1\x02zz"s,                               // reserved bits
                                 "\x80\x02zz"s,                               // a continuation of nothing
                                 "\x01\x02{}\x81\x02{}"s,                     // a message inside another one
                                 "\x89\x7e\x02"s + '\0' + random.bytes(512),  // a ping of 512 bytes
                                 "\x88\x01\x03"s,                             // half a close code
                                 "\x88\x02\x03\xed"s,                         // a code that must not be sent
                                 "\x81\x85masked"s,
                                 random.bytes(1 + random.below(300))};
        fault.messages = int(random.below(4));
        fault.closeCode = random.of(codes);
        fault.reason = random.of(reasons);
        fault.body = random.of(frames);
    });
    made.silent = silent;
    made.socket = true;
    return made;
}

Fault disk(const char *name, DiskCall call, int error)
{
    return {name, {}, error == halfOnly, false, false, Fault::Portal, false, call, error};
}

const string ok = "HTTP/1.1 200 OK\r\n", chunks = ok + "Transfer-Encoding: chunked\r\n\r\n",
             html = "<html><b>\"Sorry\"</b>", htmlType = "Content-Type: text/html\r\n",
             huge = QByteArray("[0").append(QByteArray(",{}").repeated(300000)).append(']').toStdString(),
             challenges = "WWW-Authenticate: Basic realm=\"x\"\r\nProxy-Authenticate: Basic realm=\"x\"\r\n",
             duplicates = R"({"jobId":"a","jobId":{"jobId":"b"},"uri":"x","uri":3,"key":1,"key":{}})";
const auto withLength = [](const char *length) { return ok + "Content-Length: " + length + "\r\n\r\n{}"; };

} // namespace

void failDisk(const string &folder, const DiskFault &fault)
{
    const std::lock_guard lock(mutex);
    wanted = fault;
    isFilling = false;
    watchDisk(folder, strike);
}

DiskStrikes restoreDisk()
{
    watchDisk({}, nullptr);
    const std::lock_guard lock(mutex);
    return std::exchange(struck, {});
}

const std::vector<Fault> faults = {
    {"none", {}, true},
    {"refused", {}, false, false, false, Fault::Refused},
    {"unreachable", {}, false, false, false, Fault::Unreachable},
    {"no TLS there", {}, false, false, false, Fault::NoTls},
    {"not trusted", {}, false, false, false, Fault::Distrusted},
    {"SOCKS5 proxy", {}, true, false, false, Fault::Socks},
    {"HTTP proxy", {}, true, false, false, Fault::Http},
    {"proxy refuses", {}, false, false, false, Fault::ProxyRefuses},
    {"proxy closes", {}, false, false, false, Fault::ProxyCloses},
    plain("delay", FaultKind::Delay, true),
    plain("drip", FaultKind::Drip, true),
    plain("gzip", FaultKind::Gzip, true),
    plain("no length", FaultKind::NoLength, true),
    plain("slow to write", FaultKind::SlowWrite, true),
    plain("cut head", FaultKind::CutHead),
    plain("cut body", FaultKind::CutBody),
    plain("reset before", FaultKind::ResetBefore),
    plain("reset after", FaultKind::ResetAfter),
    plain("hang up", FaultKind::HangUp),
    plain("silence", FaultKind::Silence, false, true),
    plain("slow to read", FaultKind::SlowRead, true),
    plain("cut upload", FaultKind::CutUpload),
    raw("any status", anyStatus, false),
    raw("redirect", oneOf({redirection("/api/job/list"), redirection("https://127.0.0.1:9/"),
                           redirection("http://127.0.0.1:9/"), redirection(""), redirection("a b")})),
    raw("unauthorised", oneOf({answerOf("401 No", R"({"message":"no"})", challenges),
                               answerOf("407 No", R"({"message":"no"})", challenges)})),
    raw("HTML", oneOf({answerOf("200 OK", html, htmlType), answerOf("502 Bad", html, htmlType)})),
    raw("empty body", oneOf({answerOf("200 OK", "")})),
    raw("huge body", oneOf({answerOf("200 OK", huge), answerOf("500 Bad", huge)})),
    raw("deep JSON", oneOf({answerOf("200 OK", string(100000, '[')), answerOf("200 OK", string(100000, '{'))})),
    raw("wrong types", [](Random &random) { return answerOf("200 OK", nonsense(random)); }),
    raw("duplicate keys", oneOf({answerOf("200 OK", duplicates)})),
    raw("invalid UTF-8",
        [](Random &random) {
            return answerOf("200 OK", "{\"jobId\":\"\xff\xfe" + random.bytes(20) + "\",\"message\":\"\xc3\"}");
        }),
    raw("longer than its length", oneOf({withLength("2") + ok + "Content-Length: 0\r\n\r\n"})),
    raw("shorter than its length", oneOf({withLength("9")}), false),
    raw("bad chunks", oneOf({chunks + "zz\r\n{}", chunks + "2\r\n{"}), false),
    raw("bad gzip",
        [](Random &random) {
            return answerOf("200 OK", "\x1f\x8b\x08" + random.bytes(40), "Content-Encoding: gzip\r\n");
        }),
    raw(
        "no HTTP", [](Random &random) { return random.bytes(1 + random.below(3000)); }, false),
    raw("bad length",
        oneOf({withLength("-1"), withLength("99999999999999999999"), withLength("x"), withLength("1, 2")}), false),
    raw("huge head", oneOf({answerOf("200 OK", "{}", "X-Big: " + string(200000, 'x') + "\r\n")}), false),
    socket("socket dropped", FaultKind::SocketDrop),
    socket("socket silent", FaultKind::SocketSilence, true),
    socket("socket closed", FaultKind::SocketClose),
    socket("bad frames", FaultKind::SocketRaw),
    disk("disk cannot open", DiskCall::Open, EACCES),
    disk("disk has too many open files", DiskCall::Open, EMFILE),
    disk("disk cannot read", DiskCall::Read, EIO),
    disk("disk reads in parts", DiskCall::Read, halfOnly),
    disk("disk writes in parts", DiskCall::Write, halfOnly),
    disk("disk cannot write", DiskCall::Write, EIO),
    disk("disk full", DiskCall::Write, ENOSPC),
    disk("disk cannot sync", DiskCall::Sync, EIO),
    disk("disk cannot close", DiskCall::Close, EIO),
    disk("disk cannot rename", DiskCall::Rename, EACCES),
    disk("disk cannot remove", DiskCall::Remove, EROFS)};

} // namespace Torture
