#include "operations/Tags.h"

namespace Velmora {

std::list<ItemTag> Tags::readTags(const QByteArray &body)
{
    const QJsonDocument document = QJsonDocument::fromJson(body);
    return readReplyList<ItemTag>(document.isObject() ? document.object().value(QLatin1String("taglist")).toArray()
                                                      : document.array());
}

Call<std::list<JobDetails>> Tags::search(const std::list<std::string> &tags)
{
    QJsonArray wanted;
    for (const std::string &tag : tags)
        wanted.append(QJsonObject{{QLatin1String("tag"), toQt(tag)}, {QLatin1String("type"), QLatin1String(tagType)}});
    return {{Endpoints::TagSearch, Verb::Post, toText({{QLatin1String("tags"), wanted}})}};
}

Call<std::list<JobDetails>> Tags::searchByTags(const std::list<ItemTag> &tags)
{
    std::list<std::string> texts;
    for (const ItemTag &tag : tags)
        texts.push_back(tag.tagText);
    return search(texts);
}

} // namespace Velmora
