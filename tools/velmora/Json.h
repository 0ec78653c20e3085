/// @file Json.h
/// Records as JSON, under the key names of the library's host form.
#ifndef VELMORA_CLI_JSON_H
#define VELMORA_CLI_JSON_H

#include <velmora/Records.h>

#include <QJsonArray>
#include <QJsonObject>

namespace Velmora::Cli {

QJsonObject toJson(const ApiError &error);
QJsonObject toJson(const JobDetails &job);
QJsonObject toJson(const JobProgress &progress);
QJsonObject toJson(const SimulationAbortState &state);
QJsonObject toJson(const CloudFile &file);
QJsonObject toJson(const AccountDetails &account);
QJsonObject toJson(const AccountBalance &balance);
QJsonObject toJson(const HpcDetails &cluster);
QJsonObject toJson(const UserDetails &user);
QJsonObject toJson(const ItemTag &tag);

template <class List> QJsonArray toJsonArray(const List &records)
{
    QJsonArray array;
    for (const auto &record : records)
        array.append(toJson(record));
    return array;
}

} // namespace Velmora::Cli

#endif
