#pragma once

// The JSON forms of every record, stated once more and by hand: what the service and the hosts rely on.
// A row names a field's key in a reply and in the host form. Sample documents, expected results and
// the positions to put wrong values into are all derived from these rows.

#include <velmora/Records.h>

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QStringList>

#include <functional>
#include <vector>

namespace Velmora {

enum class Kind { Text, Int32, Int64, Number, Flag, Texts, Record, Records };

/// The documents that the rows describe. The plain ones stand for the record in memory, keyed like a
/// reply, without nesting for "object.key".
enum class Shape { Reply, Host, Input, Plain, PlainInput };

template <class R> struct Row {
    QString reply; ///< "key", or "object.key" for one that lies deeper
    QString host;
    Kind kind;
    Kind inputKind;
    bool input = false; ///< read from a host's text
    std::function<QJsonValue(Shape, int position, int seed)> sample;
    std::function<QJsonValue(const R &)> get; ///< the member as plain value
    std::function<void(R &, const QJsonValue &)> set;

    Row fromHost() const
    {
        Row row = *this;
        row.input = true;
        return row;
    }
    /// A 64-bit member that a host states in 32 bits.
    Row fromHostInt32() const
    {
        Row row = fromHost();
        row.inputKind = Kind::Int32;
        row.sample = [wide = sample](Shape shape, int position, int seed) {
            return shape == Shape::Input || shape == Shape::PlainInput ? QJsonValue(2000 + position)
                                                                       : wide(shape, position, seed);
        };
        return row;
    }
    /// A 64-bit member that a reply states in 32 bits.
    Row int32() const
    {
        Row row = *this;
        row.kind = Kind::Int32;
        row.sample = [](Shape, int position, int) { return QJsonValue(2000 + position); };
        return row;
    }
};

template <class R> std::vector<Row<R>> rows();
template <class R> QJsonObject document(Shape shape, int seed);
template <class R> QJsonObject plain(const R &record);
template <class R> R filled(const QJsonObject &plainObject);

/// One member type: its kind, a sample, and the way to plain JSON and back.
template <class T> struct Type { // a record
    static constexpr Kind kind = Kind::Record;
    static QJsonValue sample(Shape shape, int, int seed) { return document<T>(shape, seed); }
    static QJsonValue get(const T &value) { return plain(value); }
    static T set(const QJsonValue &json) { return filled<T>(json.toObject()); }
};
template <> struct Type<std::string> {
    static constexpr Kind kind = Kind::Text;
    static QJsonValue sample(Shape, int position, int seed)
    {
        return QStringLiteral("%1 \u00fcber \u65e5\u672c \"%2\"").arg(position).arg(seed);
    }
    static QJsonValue get(const std::string &value) { return QString::fromUtf8(value.c_str()); }
    static std::string set(const QJsonValue &json) { return json.toString().toUtf8().toStdString(); }
};
template <> struct Type<int> {
    static constexpr Kind kind = Kind::Int32;
    static QJsonValue sample(Shape, int position, int) { return 1000 + position; }
    static QJsonValue get(int value) { return value; }
    static int set(const QJsonValue &json) { return json.toInt(); }
};
template <> struct Type<long long> {
    static constexpr Kind kind = Kind::Int64;
    static QJsonValue sample(Shape, int position, int) { return qint64(1600000000000) + position; }
    static QJsonValue get(long long value) { return qint64(value); }
    static long long set(const QJsonValue &json) { return static_cast<long long>(json.toDouble()); }
};
template <> struct Type<double> {
    static constexpr Kind kind = Kind::Number;
    static QJsonValue sample(Shape, int position, int) { return position + 0.25; }
    static QJsonValue get(double value) { return value; }
    static double set(const QJsonValue &json) { return json.toDouble(); }
};
template <> struct Type<bool> {
    static constexpr Kind kind = Kind::Flag;
    /// Over seeds 0 to 3 any two of sixteen flags differ at least once.
    static QJsonValue sample(Shape shape, int position, int seed)
    {
        const bool value = ((position >> (seed % 4)) & 1) != 0;
        return shape == Shape::Host ? QJsonValue(value ? QStringLiteral("true") : QStringLiteral("false"))
                                    : QJsonValue(value);
    }
    static QJsonValue get(bool value) { return value; }
    static bool set(const QJsonValue &json) { return json.toBool(); }
};
template <class T> struct Type<std::list<T>> {
    static constexpr Kind kind = Type<T>::kind == Kind::Text ? Kind::Texts : Kind::Records;
    static QJsonValue sample(Shape shape, int position, int seed)
    {
        return QJsonArray{Type<T>::sample(shape, position + 100, seed), Type<T>::sample(shape, position, seed + 1)};
    }
    static QJsonValue get(const std::list<T> &values)
    {
        QJsonArray array;
        for (const T &value : values)
            array.append(Type<T>::get(value));
        return array;
    }
    static std::list<T> set(const QJsonValue &json)
    {
        std::list<T> values;
        for (const QJsonValue &element : json.toArray())
            values.push_back(Type<T>::set(element));
        return values;
    }
};

template <class R, class V> Row<R> row(const char *reply, const char *host, V R::*member)
{
    return {QString::fromLatin1(reply),
            QString::fromLatin1(host),
            Type<V>::kind,
            Type<V>::kind,
            false,
            &Type<V>::sample,
            [member](const R &record) { return Type<V>::get(record.*member); },
            [member](R &record, const QJsonValue &json) { record.*member = Type<V>::set(json); }};
}

inline void put(QJsonObject &object, const QString &path, const QJsonValue &value)
{
    const QStringList keys = path.split(QLatin1Char('.'));
    if (keys.size() == 1) {
        object.insert(path, value);
        return;
    }
    QJsonObject inner = object.value(keys[0]).toObject();
    inner.insert(keys[1], value);
    object.insert(keys[0], inner);
}

template <class R> QJsonObject document(Shape shape, int seed)
{
    QJsonObject object;
    int position = 0;
    for (const Row<R> &row : rows<R>()) {
        const QJsonValue value = row.sample(shape, ++position, seed);
        if (shape == Shape::Reply)
            put(object, row.reply, value);
        else if (shape == Shape::Plain)
            object.insert(row.reply, value);
        else if (shape == Shape::PlainInput)
            object.insert(row.reply, row.input ? value : row.get(R{}));
        else
            object.insert(row.host, value);
    }
    return object;
}

template <class R> QJsonObject plain(const R &record)
{
    QJsonObject object;
    for (const Row<R> &row : rows<R>())
        object.insert(row.reply, row.get(record));
    return object;
}

template <class R> R filled(const QJsonObject &plainObject)
{
    R record;
    for (const Row<R> &row : rows<R>())
        row.set(record, plainObject.value(row.reply));
    return record;
}

template <> inline std::vector<Row<ApiError>> rows()
{
    return {row("errorCode", "errorCode", &ApiError::errorCode), row("errorTitle", "errorTitle", &ApiError::errorTitle),
            row("errorMessage", "errorMessage", &ApiError::errorMessage)};
}

template <> inline std::vector<Row<CloudFile>> rows()
{
    return {row("jobId", "jobId", &CloudFile::jobId).fromHost(),
            row("fileName", "fileName", &CloudFile::fileName).fromHost(),
            row("fileSize", "fileSize", &CloudFile::fileSize).fromHostInt32(),
            row("fileDate", "fileDate", &CloudFile::fileDate),
            row("fileHash", "fileHash", &CloudFile::fileHash),
            row("directory", "directory", &CloudFile::directory).fromHost()};
}

template <> inline std::vector<Row<FileDownloadDetails>> rows()
{
    return {row("localFileLocation", "localFileLocation", &FileDownloadDetails::localFileLocation).fromHost(),
            row("cloudFileDetails", "cloudFileDetails", &FileDownloadDetails::cloudFileDetails).fromHost()};
}

template <> inline std::vector<Row<FileUploadDetails>> rows()
{
    return {row("localFileLocation", "localFileLocation", &FileUploadDetails::localFileLocation).fromHost(),
            row("cloudFileJobID", "cloudFileJobID", &FileUploadDetails::cloudFileJobID).fromHost(),
            row("totalFileSize", "totalFileSize", &FileUploadDetails::totalFileSize).fromHostInt32()};
}

template <> inline std::vector<Row<ItemTag>> rows()
{
    return {row("tag", "tagText", &ItemTag::tagText).fromHost(), row("type", "tagType", &ItemTag::tagType).fromHost()};
}

template <> inline std::vector<Row<UserDetails>> rows()
{
    return {row("userId", "userId", &UserDetails::userId), row("cognitoEmail", "userEmail", &UserDetails::userEmail),
            row("lastName", "surname", &UserDetails::surname), row("firstName", "forename", &UserDetails::forename),
            row("companyName", "companyName", &UserDetails::companyName)};
}

template <> inline std::vector<Row<AccountAccess>> rows()
{
    return {row("accountId", "accountID", &AccountAccess::accountID),
            row("cognitoEmail", "userEmail", &AccountAccess::userEmail),
            row("maxCoreHourRequest", "maxCoreHourRequest", &AccountAccess::maxCoreHourRequest),
            row("accountAdmin", "accountAdmin", &AccountAccess::accountAdmin),
            row("hasMFA", "hasMFA", &AccountAccess::hasMFA)};
}

template <> inline std::vector<Row<AccountDetails>> rows()
{
    return {row("account.accountId", "accountId", &AccountDetails::accountId),
            row("account.accountName", "accountName", &AccountDetails::accountName),
            row("account.overageEnabled", "overageEnabled", &AccountDetails::overageEnabled),
            row("account.billingEnabled", "billingEnabled", &AccountDetails::billingEnabled),
            row("account.planCode", "planCode", &AccountDetails::planCode),
            row("account.accountCreated", "accountCreated", &AccountDetails::accountCreated).int32(),
            row("accountAccess", "accountAccess", &AccountDetails::accountAccess)};
}

// Records that hosts do not receive as text have no host key.
template <> inline std::vector<Row<AccountTransaction>> rows()
{
    return {row("accountId", "", &AccountTransaction::accountId),
            row("transactionId", "", &AccountTransaction::transactionId),
            row("jobId", "", &AccountTransaction::jobId),
            row("simulationId", "", &AccountTransaction::simulationId),
            row("transactionType", "", &AccountTransaction::transactionType),
            row("transactionDescription", "", &AccountTransaction::transactionDescription),
            row("cognitoEmail", "", &AccountTransaction::userEmail),
            row("userId", "", &AccountTransaction::userId),
            row("transactionAmount", "", &AccountTransaction::transactionAmount),
            row("transactionDate", "", &AccountTransaction::transactionDate),
            row("invoiceSubmitted", "", &AccountTransaction::invoiceSubmitted),
            row("invoiceRequired", "", &AccountTransaction::invoiceRequired),
            row("invoiceAccepted", "", &AccountTransaction::invoiceAccepted)};
}

template <> inline std::vector<Row<AccountBalance>> rows()
{
    return {row("accountId", "", &AccountBalance::accountId),
            row("coreHoursAvailable", "", &AccountBalance::coreHoursAvailable),
            row("recentTransactions", "", &AccountBalance::recentTransactions)};
}

template <> inline std::vector<Row<HpcDetails>> rows()
{
    return {row("hpcId", "", &HpcDetails::hpcId),
            row("hpcActive", "", &HpcDetails::hpcActive),
            row("hpcCloud", "", &HpcDetails::hpcCloud),
            row("hpcClusterName", "", &HpcDetails::hpcClusterName),
            row("hpcDescription", "", &HpcDetails::hpcDescription),
            row("hpcRegion", "", &HpcDetails::hpcRegion),
            row("hpcAccountBucket", "", &HpcDetails::hpcAccountBucket)};
}

template <> inline std::vector<Row<JobStatusEntry>> rows()
{
    return {row("jobId", "jobId", &JobStatusEntry::jobId), row("jobStatus", "jobStatus", &JobStatusEntry::jobStatus),
            row("jobStatusDate", "jobStatusDate", &JobStatusEntry::jobStatusDate)};
}

template <> inline std::vector<Row<SimulationStatusEntry>> rows()
{
    return {row("jobId", "jobId", &SimulationStatusEntry::jobId),
            row("simulationId", "simulationId", &SimulationStatusEntry::simulationId),
            row("simulationStatus", "simulationStatus", &SimulationStatusEntry::simulationStatus),
            row("simulationStatusDate", "simulationStatusDate", &SimulationStatusEntry::simulationStatusDate)};
}

template <> inline std::vector<Row<SimulationDetails>> rows()
{
    return {row("simulationId", "simulationId", &SimulationDetails::simulationId),
            row("consoleParameters", "consoleParameters", &SimulationDetails::consoleParameters),
            row("simulationStatus", "simulationStatus", &SimulationDetails::simulationStatus)};
}

template <> inline std::vector<Row<JobDetails>> rows()
{
    return {row("jobId", "jobId", &JobDetails::jobId),
            row("accountId", "accountId", &JobDetails::accountId),
            row("jobName", "jobName", &JobDetails::jobName),
            row("dockerTag", "dockerTag", &JobDetails::dockerTag),
            row("coresRequired", "coresRequired", &JobDetails::coresRequired),
            row("coreHourEstimate", "coreHourEstimate", &JobDetails::coreHourEstimate),
            row("ramEstimate", "ramEstimate", &JobDetails::ramEstimate),
            row("mainFile", "mainFile", &JobDetails::mainFile),
            row("precision", "precision", &JobDetails::precision),
            row("numberOfParts", "numberOfParts", &JobDetails::numberOfParts),
            row("fileDependencies", "fileDependencies", &JobDetails::fileDependencies),
            row("fileAliases", "fileAliases", &JobDetails::fileAliases),
            row("operation", "operation", &JobDetails::operation),
            row("simulations", "simulations", &JobDetails::simulations),
            row("jobStatus", "jobStatus", &JobDetails::jobStatus),
            row("jobType", "jobType", &JobDetails::jobType)};
}

template <> inline std::vector<Row<SimulationProgress>> rows()
{
    return {row("simulationId", "", &SimulationProgress::simulationId),
            row("progress", "", &SimulationProgress::progress)};
}

template <> inline std::vector<Row<JobProgress>> rows()
{
    return {row("jobId", "", &JobProgress::jobId),
            row("simulationProgressList", "", &JobProgress::simulationProgressList)};
}

template <> inline std::vector<Row<SimulationAbortState>> rows()
{
    return {row("jobId", "jobID", &SimulationAbortState::jobId),
            row("simulationId", "simID", &SimulationAbortState::simulationId),
            row("status", "status", &SimulationAbortState::status)};
}

} // namespace Velmora
