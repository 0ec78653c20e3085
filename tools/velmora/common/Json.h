/// @file Json.h
/// Records as JSON, by the library's field tables.
#ifndef VELMORA_CLI_JSON_H
#define VELMORA_CLI_JSON_H

#include "model/Json.h"

namespace Velmora::Cli {

/// The form in which an application passes a record to the library: its key names, and flags that are booleans.
template <class Record> QJsonObject toJson(const Record &record) { return writeRecord(record, Form::Input); }

template <class List> QJsonArray toJsonArray(const List &records)
{
    QJsonArray array;
    for (const auto &record : records)
        array.append(toJson(record));
    return array;
}

} // namespace Velmora::Cli

#endif
