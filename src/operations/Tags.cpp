// Tagging jobs and finding them by tag.

#include "transport/Pipeline.h"

namespace Velmora {

namespace {

// Every tag made or searched for here is of this type.
constexpr const char *tagType = "ProjectTag";

// The service answers either with a bare array or with an object that holds it.
std::list<ItemTag> readTags(const QByteArray &body)
{
    const QJsonDocument document = QJsonDocument::fromJson(body);
    return readReplyList<ItemTag>(document.isObject() ? document.object().value(QLatin1String("taglist")).toArray()
                                                      : document.array());
}

} // namespace

void CloudAPIImpl::callForTags(const Request &request, const ResultDone<std::list<ItemTag>> &onComplete)
{
    call<std::list<ItemTag>>(request, readTags, onComplete);
}

void CloudAPIImpl::tagJob(const std::string &jobId, const std::string &tag,
                          const ResultDone<std::list<ItemTag>> &onComplete)
{
    callForTags({RequestType::TagJob, Verb::Post, bodyOf({{"itemId", jobId}, {"tag", tag}, {"type", tagType}})},
                onComplete);
}

void CloudAPIImpl::untagJob(const std::string &jobId, const std::string &tag,
                            const ResultDone<std::list<ItemTag>> &onComplete)
{
    callForTags(
        {RequestType::TagJob, Verb::DeleteWithBody, bodyOf({{"itemId", jobId}, {"tag", tag}, {"type", tagType}})},
        onComplete);
}

void CloudAPIImpl::getJobTags(const std::string &jobId, const ResultDone<std::list<ItemTag>> &onComplete)
{
    callForTags({RequestType::TagList, Verb::Post, bodyOf({{"itemId", jobId}})}, onComplete);
}

void CloudAPIImpl::getAllAccountTags(const std::string &accountId, const ResultDone<std::list<ItemTag>> &onComplete)
{
    callForTags({RequestType::TagListAccount, Verb::Post, bodyOf({{"accountId", accountId}})}, onComplete);
}

void CloudAPIImpl::searchUserTags(const std::list<std::string> &tags,
                                  const ResultDone<std::list<JobDetails>> &onComplete)
{
    QJsonArray wanted;
    for (const std::string &tag : tags)
        wanted.append(QJsonObject{{QLatin1String("tag"), toQt(tag)}, {QLatin1String("type"), QLatin1String(tagType)}});
    callForList({RequestType::TagSearch, Verb::Post, toText({{QLatin1String("tags"), wanted}})}, onComplete);
}

} // namespace Velmora
