#pragma once

#include "transport/Call.h"

#include <velmora/Records.h>

#include <list>
#include <string>

/// Tagging jobs and finding them by tag.
namespace Velmora::Tags {

/// Every tag made or searched for here is of this type.
inline constexpr const char *tagType = "ProjectTag";

/// The service answers either with a bare array or with an object that holds it.
std::list<ItemTag> readTags(const QByteArray &body);

inline Call<std::list<ItemTag>> add(const std::string &jobId, const std::string &tag)
{
    return {{Endpoints::TagJob, Verb::Post, bodyOf({{"itemId", jobId}, {"tag", tag}, {"type", tagType}})}, readTags};
}

inline Call<std::list<ItemTag>> remove(const std::string &jobId, const std::string &tag)
{
    return {{Endpoints::TagJob, Verb::DeleteWithBody, bodyOf({{"itemId", jobId}, {"tag", tag}, {"type", tagType}})},
            readTags};
}

inline Call<std::list<ItemTag>> ofJob(const std::string &jobId)
{
    return {{Endpoints::TagList, Verb::Post, bodyOf({{"itemId", jobId}})}, readTags};
}

inline Call<std::list<ItemTag>> ofAccount(const std::string &accountId)
{
    return {{Endpoints::TagListAccount, Verb::Post, bodyOf({{"accountId", accountId}})}, readTags};
}

Call<std::list<JobDetails>> search(const std::list<std::string> &tags);
/// As above with the texts of the tags.
Call<std::list<JobDetails>> searchByTags(const std::list<ItemTag> &tags);

} // namespace Velmora::Tags
