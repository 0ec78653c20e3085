#pragma once

// A completion callback of whatever kind an operation asks for.

#include "model/Json.h"

#include <velmora/CloudAPI.h>

#include <functional>

inline QJsonValue toJson(const Velmora::DeleteFileDetails &file)
{
    using Velmora::toQt;
    return QJsonArray{toQt(file.jobId), toQt(file.simulationId), toQt(file.fileName)};
}
template <class Result> QJsonValue toJson(const Result &result)
{
    return Velmora::Detail::writeValue(result, Velmora::Form::Reply);
}

/// Converts to every kind of completion callback, to an empty one when `heard` is empty. Hears the result as JSON,
/// and whether it is a default-constructed one or there is none.
struct AnyCompletion {
    std::function<void(const Velmora::ApiError &, const QJsonValue &result, bool isDefault)> heard;

    template <class Result> operator std::function<void(const Velmora::ApiError &, const Result &)>() const
    {
        if (!heard)
            return {};
        return [tell = heard](const Velmora::ApiError &error, const Result &result) {
            tell(error, toJson(result), toJson(result) == toJson(Result{}));
        };
    }
    operator Velmora::CloudAPI::Done() const
    {
        if (!heard)
            return {};
        return [tell = heard](const Velmora::ApiError &error) { tell(error, {}, true); };
    }
};
