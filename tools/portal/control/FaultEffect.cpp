#include "portal/control/FaultEffect.h"

#include "portal/control/FaultTable.h"
#include "portal/http/Text.h"

#include <algorithm>

namespace VelmoraPortal {
namespace {

const std::string changedTag = "\"changed-"; ///< start of a changed object's ETag

void removeHeader(Headers &headers, const char *name)
{
    headers.erase(std::remove_if(headers.begin(), headers.end(),
                                 [&](const auto &header) { return lowered(header.first) == name; }),
                  headers.end());
}

} // namespace

HttpRequest altered(const Fault &fault, HttpRequest head)
{
    if (fault.kind == FaultKind::IgnoreRange)
        removeHeader(head.headers, "range");
    if (fault.kind == FaultKind::OtherRange || (fault.kind == FaultKind::OtherEtag && fault.status == 206)) {
        removeHeader(head.headers, "if-range");
    } else if (const std::string *tag = findHeader(head.headers, "If-Range");
               tag && fault.kind == FaultKind::OtherEtag) {
        // The object has changed for good: its new tag is valid from now on, the old one is not.
        const bool isNew = tag->compare(0, changedTag.size(), changedTag) == 0;
        const std::string own = isNew ? '"' + tag->substr(changedTag.size()) : "";
        removeHeader(head.headers, "if-range");
        head.headers.emplace_back("If-Range", own);
    }
    if (fault.kind == FaultKind::OtherRange) {
        removeHeader(head.headers, "range");
        head.headers.emplace_back("Range", "bytes=" + std::to_string(fault.bytes) + '-');
    }
    return head;
}

long long uploadLimit(const Fault &fault)
{
    const bool early = fault.kind == FaultKind::CutUpload || fault.kind == FaultKind::RefuseEarly ||
                       fault.kind == FaultKind::StopReading;
    return early ? fault.bytes : -1;
}

Answer faulty(const Fault &fault, Answer answer)
{
    answer.delay = fault.delay;
    answer.bytes = fault.bytes;
    answer.ending = rowOf(fault.kind).ending;
    answer.closing = fault.closing;
    answer.informational = fault.informational;
    switch (fault.kind) {
    case FaultKind::Status:
        answer.response = {fault.status, fault.contentType, fault.body, {}, nullptr};
        answer.keepOpen = fault.keepOpen;
        break;
    case FaultKind::RefuseEarly:
        answer.response = {fault.status, fault.contentType, fault.body, {}, nullptr};
        if (fault.closing == Closing::Usual)
            answer.closing = Closing::Notify;
        break;
    case FaultKind::Informational:
        if (fault.informational.empty())
            answer.informational = {103};
        break;
    case FaultKind::OtherEtag:
        for (auto &[name, value] : answer.response.headers)
            if (name == "ETag")
                value = changedTag + value.substr(1);
        break;
    case FaultKind::Raw:
        answer.response.body = fault.body;
        answer.keepOpen = fault.keepOpen;
        break;
    case FaultKind::Drip:
        answer.drip = true;
        [[fallthrough]];
    case FaultKind::SlowWrite:
        answer.rate = fault.rate;
        break;
    case FaultKind::Gzip:
        if (!answer.response.source)
            answer.response.source = textBytes(std::move(answer.response.body));
        answer.response.source = gzipped(std::move(answer.response.source));
        answer.response.headers.emplace_back("Content-Encoding", "gzip");
        if (fault.bytes > 0)
            answer.ending = Answer::Ending::CutBody;
        break;
    case FaultKind::NoLength:
        answer.lengthKnown = false;
        if (fault.bytes > 0)
            answer.ending = Answer::Ending::CutBody;
        break;
    default: // no more than the ending
        break;
    }
    return answer;
}

} // namespace VelmoraPortal
