#include "portal/control/FaultTable.h"

#include "portal/json/Body.h"

#include <algorithm>
#include <limits>
#include <variant>

namespace VelmoraPortal {
namespace {

using K = FaultKind;
using E = Answer::Ending;
constexpr unsigned either = OnRequest | OnHandshake;

// In the order of the enumeration.
constexpr FaultRow kinds[] = {
    {K::Status, "status", either, false, E::Whole, "status, body, contentType, keepOpen",
     "this answer; it refuses a socket's handshake"},
    {K::Delay, "delay", either, true, E::Whole, "delay", "the answer is sent after so many milliseconds"},
    {K::HangUp, "hangUp", either, false, E::HangUp, "", "the connection is closed without an answer"},
    {K::Silence, "silence", either, false, E::Silence, "", "no answer; the connection is kept"},
    {K::CutHead, "cutHead", OnRequest, true, E::CutHead, "", "closed in the middle of the answer's head"},
    {K::CutBody, "cutBody", OnRequest, true, E::CutBody, "bytes", "closed after so many bytes of the answer's body"},
    {K::ResetAfter, "resetAfter", OnRequest, true, E::Reset, "", "the connection is reset without an answer"},
    {K::SlowRead, "slowRead", OnRequest, true, E::Whole, "rate", "an upload's body is read at this rate"},
    {K::SlowWrite, "slowWrite", OnRequest, true, E::Whole, "rate", "the answer's body is sent at this rate"},
    {K::CutUpload, "cutUpload", OnRequest, false, E::Reset, "bytes",
     "the connection is reset after so many bytes of an upload's body"},
    {K::RefuseEarly, "refuseEarly", OnRequest, false, E::Whole, "status, body, contentType, bytes, closing",
     "this answer after so many bytes of an upload's body; then closed in order, unless \"closing\" is given"},
    {K::StopReading, "stopReading", OnRequest, false, E::Stall, "bytes",
     "after so many bytes of an upload's body nothing more is read; no answer"},
    {K::Informational, "informational", OnRequest, true, E::Whole, "informational",
     "the answer comes after these statuses, or after 103"},
    {K::Gzip, "gzip", OnRequest, true, E::Whole, "bytes",
     "the answer's body is gzip; if not 0, closed after so many bytes of it"},
    {K::NoLength, "noLength", OnRequest, true, E::Whole, "bytes",
     "no Content-Length; closed after the body or, if not 0, so many bytes of it"},
    {K::IgnoreRange, "ignoreRange", OnRequest, true, E::Whole, "", "the whole piece, also when a range is asked for"},
    {K::OtherRange, "otherRange", OnRequest, true, E::Whole, "bytes",
     "206 with the piece from this byte on, whatever is asked for"},
    {K::OtherEtag, "otherEtag", OnRequest, true, E::Whole, "status",
     "the piece has changed: it has another ETag; with status 206 the range is sent nevertheless"},
    {K::Raw, "raw", OnRequest, false, E::Raw, "body, keepOpen", "the body is sent unchanged, as head and body"},
    {K::Drip, "drip", OnRequest, true, E::Whole, "rate", "the answer, head included, is sent byte by byte"},
    {K::ResetBefore, "resetBefore", OnConnection, false, E::Reset, "",
     "reset after the TLS handshake, or when the head of a further request arrives"},
    {K::SocketDrop, "socketDrop", OnSocket, true, E::Whole, "messages", "closed without a close frame"},
    {K::SocketSilence, "socketSilence", OnSocket, true, E::Whole, "messages", "no more texts; pings are answered"},
    {K::SocketClose, "socketClose", OnSocket, true, E::Whole, "messages, closeCode, reason",
     "closed with a close frame"},
    {K::SocketRaw, "socketRaw", OnSocket, true, E::Whole, "messages, body",
     "the body is sent unchanged, as frames; nothing follows"},
};

constexpr bool inOrder()
{
    std::size_t index = 0;
    for (const FaultRow &row : kinds)
        if (static_cast<std::size_t>(row.kind) != index++)
            return false;
    return index == static_cast<std::size_t>(K::SocketRaw) + 1;
}
static_assert(inOrder());

/// A field of `Fault` in the control interface. `least` and `most` limit a number or the length of a text.
struct FaultField {
    const char *name;
    std::variant<int Fault::*, long long Fault::*, bool Fault::*, std::chrono::milliseconds Fault::*,
                 std::string Fault::*, Closing Fault::*, std::vector<int> Fault::*>
        member;
    long long least;
    long long most;
};

constexpr long long maxBytes = 1LL << 40;
constexpr long long maxText = 65536;

const FaultField fields[] = {
    {"path", &Fault::path, 1, maxText},
    {"times", &Fault::times, -1, 1000000},
    {"status", &Fault::status, 200, 599},
    {"body", &Fault::body, 0, std::numeric_limits<long long>::max()}, // the request's body is limited
    {"contentType", &Fault::contentType, 1, maxText},
    {"delay", &Fault::delay, 0, 3600000},
    {"bytes", &Fault::bytes, 0, maxBytes},
    {"rate", &Fault::rate, 1, maxBytes},
    {"messages", &Fault::messages, 0, 1000000},
    {"closeCode", &Fault::closeCode, 1000, 4999},
    {"reason", &Fault::reason, 0, maxText},
    {"keepOpen", &Fault::keepOpen, 0, 1},
    {"closing", &Fault::closing, 0, 0},
    {"informational", &Fault::informational, 100, 199},
};

const std::map<std::string, Closing> closingNames = {
    {"usual", Closing::Usual}, {"notify", Closing::Notify}, {"end", Closing::End},
    {"reset", Closing::Reset}, {"hold", Closing::Hold},     {"skip", Closing::Skip},
};

template <typename T> void read(Body &body, const FaultField &field, T &value)
{
    if constexpr (std::is_same_v<T, std::string>)
        value = body.text(field.name, field.least == 0, static_cast<std::size_t>(field.most));
    else if constexpr (std::is_same_v<T, Closing>)
        value = body.choice(field.name, closingNames);
    else if constexpr (std::is_same_v<T, std::vector<int>>)
        value = body.integers(field.name, field.least, field.most);
    else
        value = static_cast<T>(body.integer(field.name, field.least, field.most));
}

template <typename T> Json written(const T &value)
{
    if constexpr (std::is_same_v<T, bool>)
        return value ? 1 : 0;
    else if constexpr (std::is_same_v<T, std::chrono::milliseconds>)
        return value.count();
    else if constexpr (std::is_same_v<T, Closing>)
        return std::find_if(closingNames.begin(), closingNames.end(),
                            [&](const auto &each) { return each.second == value; })
            ->first;
    else
        return value;
}

const char *headingOf(unsigned moments)
{
    switch (moments) {
    case OnConnection:
        return "The next connection or request, whatever its path";
    case OnRequest:
        return "A request";
    case OnSocket:
        return "An accepted socket, after so many \"messages\"";
    default:
        return "A request or a socket's handshake";
    }
}

} // namespace

const FaultRow &rowOf(FaultKind kind) { return kinds[static_cast<std::size_t>(kind)]; }

Fault faultOf(const Json &object)
{
    Body body(object);
    std::map<std::string, FaultKind> names;
    for (const FaultRow &row : kinds)
        names.emplace(row.name, row.kind);
    Fault fault;
    fault.kind = body.choice("kind", names);
    for (const FaultField &field : fields) {
        const bool required = field.name == std::string("path") && (rowOf(fault.kind).moments & either) != 0;
        if (required || body.has(field.name))
            std::visit([&](auto member) { read(body, field, fault.*member); }, field.member);
    }
    body.end();
    return fault;
}

Json toJson(const Fault &fault)
{
    Json json = {{"kind", rowOf(fault.kind).name}};
    for (const FaultField &field : fields)
        json[field.name] = std::visit([&](auto member) { return written(fault.*member); }, field.member);
    return json;
}

std::string faultHelp()
{
    std::string text;
    unsigned moments = 0;
    for (const FaultRow &row : kinds) {
        if (row.moments != moments)
            text += std::string(headingOf(row.moments)) + ":\n";
        moments = row.moments;
        std::string line = std::string("  ") + row.name;
        line.resize(17, ' ');
        if ((moments & either) != 0)
            line += row.processed ? "processed; " : "not processed; ";
        line += row.effect;
        if (*row.fields)
            line += std::string(" (") + row.fields + ')';
        text += line + '\n';
    }
    return text;
}

} // namespace VelmoraPortal
