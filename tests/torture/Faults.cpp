#include "Torture.h"

#include <cerrno>

namespace Torture {

namespace {

using Wire = std::function<S(Random &)>;

S answerOf(const S &status, const S &body, const S &headers = "Content-Type: application/json\r\n")
{
    return "HTTP/1.1 " + status + "\r\n" + headers + "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" +
           body;
}

/// JSON that is well-formed and makes no sense, of every shape that a reader might stumble over. No key comes
/// twice in an object: Qt 5.15's reader loses memory on some of those.
S nonsense(Random &random, int depth = 0)
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
    S text;
    for (std::size_t i = random.below(5); i > 0; --i) {
        text += text.empty() ? "" : ",";
        text += shape == 1 ? "" : '"' + keys[int(i * 5 - 1 - random.below(5))].toStdString() + "\":";
        text += nonsense(random, depth + 1);
    }
    return shape == 1 ? '[' + text + ']' : '{' + text + '}';
}

Trouble raw(const char *name, Wire wire, bool keepOpen = true)
{
    return {name,
            [wire = std::move(wire), keepOpen](Random &random) {
                Fault fault;
                fault.kind = FaultKind::Raw;
                fault.body = wire(random);
                fault.keepOpen = keepOpen;
                return fault;
            },
            false, false, true};
}

Trouble plain(const char *name, FaultKind kind, bool harmless = false, bool silent = false)
{
    return {name,
            [kind](Random &random) {
                constexpr long bytes[] = {0, 1, 15, 16, 100, 4111, 4112, 4113, 100000};
                Fault fault;
                fault.kind = kind;
                fault.bytes = kind == FaultKind::Gzip || kind == FaultKind::NoLength ? 0 : random.of(bytes);
                fault.delay = std::chrono::milliseconds(kind == FaultKind::Delay ? random.below(200) : 0);
                fault.rate = kind == FaultKind::Drip ? 20000 : 1000000;
                return fault;
            },
            harmless, silent};
}

Trouble socket(const char *name, FaultKind kind, bool silent = false)
{
    return {name,
            [kind](Random &random) {
                constexpr int codes[] = {1000, 1001, 1002, 1003, 1007, 1008, 1009, 1011, 3000, 4000, 4999};
                const char *const reasons[] = {"", "Job status is FINISHED", "Job status is STOPPED", "bye"};
                Fault fault;
                fault.kind = kind;
                fault.messages = int(random.below(4));
                fault.closeCode = random.of(codes);
                fault.reason = random.of(reasons);
                return fault;
            },
            false,
            silent,
            false,
            Trouble::Portal,
            true};
}

/// Frames that a client must not swallow: what it does with them is its affair, but it neither crashes nor waits.
Trouble frames()
{
    Trouble trouble = socket("bad frames", FaultKind::SocketRaw);
    trouble.fault = [](Random &random) {
        const S bodies[] = {
            S("\x81\x7f\x7f\xff\xff\xff\xff\xff\xff\xff", 10) + random.bytes(100), // longer than memory
            S("\x81\x7f\xff\xff\xff\xff\xff\xff\xff\xff", 10),                     // of negative length
            S("\x81\x04\xff\xfe\xc3\x28", 6),                                      // no UTF-8
            S("\x82\x03", 2) + random.bytes(3),                                    // binary
            S("\xf1\x02zz", 4),                                                    // reserved bits
            S("\x80\x02zz", 4),                                                    // goes on with nothing
            S("\x01\x02{}\x81\x02{}", 8),                                          // begins while another one is open
            S("\x89\x7e\x02", 3) + '\0' + random.bytes(512),                       // a ping of 512 bytes
            S("\x88\x01\x03", 3),                                                  // half a close code
            S("\x88\x02\x03\xed", 4),                                              // a code that is never sent
            S("\x81\x85masked", 8),
            random.bytes(1 + random.below(300)),
        };
        Fault fault;
        fault.kind = FaultKind::SocketRaw;
        fault.messages = int(random.below(3));
        fault.body = random.of(bodies);
        return fault;
    };
    return trouble;
}

Trouble disk(const char *name, DiskCall call, int error)
{
    return {name, {}, false, false, false, Trouble::Portal, false, call, error};
}

} // namespace

const std::vector<Trouble> &troubles()
{
    static const std::vector<Trouble> all = {
        {"none", {}, true},
        {"refused", {}, false, false, false, Trouble::Refused},
        {"unreachable", {}, false, false, false, Trouble::Unreachable},
        {"no TLS there", {}, false, false, false, Trouble::NoTls},
        {"not trusted", {}, false, false, false, Trouble::Distrusted},
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
        raw(
            "any status",
            [](Random &random) {
                return answerOf(std::to_string(100 + random.below(500)) + " Odd", R"({"message":"odd"})");
            },
            false),
        raw("redirect",
            [](Random &random) {
                const char *const to[] = {"/api/job/list", "https://127.0.0.1:9/", "http://127.0.0.1:9/", "", "a b"};
                return answerOf("302 Found", "", S("Location: ") + random.of(to) + "\r\n");
            }),
        raw("unauthorised",
            [](Random &random) {
                return answerOf(random.chance(50) ? "401 No" : "407 No", R"({"message":"no"})",
                                "WWW-Authenticate: Basic realm=\"x\"\r\nProxy-Authenticate: Basic realm=\"x\"\r\n");
            }),
        raw("HTML",
            [](Random &random) {
                return answerOf(random.chance(50) ? "200 OK" : "502 Bad", "<html><b>\"Sorry\"</b>",
                                "Content-Type: text/html\r\n");
            }),
        raw("empty body", [](Random &) { return answerOf("200 OK", ""); }),
        raw("huge body",
            [](Random &random) {
                S body = "[0";
                for (int i = 0; i < 300000; ++i)
                    body += ",{}";
                return answerOf(random.chance(70) ? "200 OK" : "500 Bad", body + ']');
            }),
        raw("deep JSON", [](Random &random) { return answerOf("200 OK", S(100000, random.chance(50) ? '[' : '{')); }),
        raw("wrong types", [](Random &random) { return answerOf("200 OK", nonsense(random)); }),
        raw("duplicate keys",
            [](Random &) {
                return answerOf("200 OK", R"({"jobId":"a","jobId":{"jobId":"b"},"uri":"x","uri":3,"key":1,"key":{}})");
            }),
        raw("invalid UTF-8",
            [](Random &random) {
                return answerOf("200 OK", "{\"jobId\":\"\xff\xfe" + random.bytes(20) + "\",\"message\":\"\xc3\"}");
            }),
        raw("longer than said",
            [](Random &) {
                return "HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\n{}" +
                       S("HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n");
            }),
        raw(
            "shorter than said", [](Random &) { return S("HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\n{}"); }, false),
        raw(
            "bad chunks",
            [](Random &random) {
                return "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n" +
                       S(random.chance(50) ? "zz\r\n{}" : "2\r\n{");
            },
            false),
        raw("bad gzip",
            [](Random &random) {
                return answerOf("200 OK", "\x1f\x8b\x08" + random.bytes(40), "Content-Encoding: gzip\r\n");
            }),
        raw(
            "no HTTP", [](Random &random) { return random.bytes(1 + random.below(3000)); }, false),
        raw(
            "bad length",
            [](Random &random) {
                const char *const lengths[] = {"-1", "99999999999999999999", "x", "1, 2"};
                return S("HTTP/1.1 200 OK\r\nContent-Length: ") + random.of(lengths) + "\r\n\r\n{}";
            },
            false),
        raw(
            "huge head", [](Random &) { return answerOf("200 OK", "{}", "X-Big: " + S(200000, 'x') + "\r\n"); }, false),
        socket("socket dropped", FaultKind::SocketDrop),
        socket("socket silent", FaultKind::SocketSilence, true),
        socket("socket closed", FaultKind::SocketClose),
        frames(),
        disk("disk refuses to open", DiskCall::Open, EACCES),
        disk("disk cannot read", DiskCall::Read, EIO),
        disk("disk cannot write", DiskCall::Write, EIO),
        disk("disk full", DiskCall::Write, ENOSPC),
        disk("disk refuses to rename", DiskCall::Rename, EPERM),
        disk("disk refuses to remove", DiskCall::Remove, EROFS),
    };
    return all;
}

} // namespace Torture
