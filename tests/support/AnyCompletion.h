#pragma once

// A completion callback of every type that an operation takes.

#include "model/Json.h"

#include <velmora/CloudAPI.h>

inline QJsonValue toJson(const Velmora::DeleteFileDetails &file)
{
    using Velmora::toQt;
    return QJsonArray{toQt(file.jobId), toQt(file.simulationId), toQt(file.fileName)};
}
template <class Result> QJsonValue toJson(const Result &result)
{
    return Velmora::Detail::writeValue(result, Velmora::Form::Reply);
}

/// Converts to every type of completion callback, to an empty one when `received` is empty. `received` gets the result
/// as JSON, and whether it is default-constructed or missing.
struct AnyCompletion {
    std::function<void(const Velmora::ApiError &, const QJsonValue &result, bool isDefault)> received;

    template <class Result> operator std::function<void(const Velmora::ApiError &, const Result &)>() const
    {
        if (!received)
            return {};
        return [notify = received](const Velmora::ApiError &error, const Result &result) {
            notify(error, toJson(result), toJson(result) == toJson(Result{}));
        };
    }
    operator Velmora::CloudAPI::Done() const
    {
        if (!received)
            return {};
        return [notify = received](const Velmora::ApiError &error) { notify(error, {}, true); };
    }
};
