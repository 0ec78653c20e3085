// The JSON forms of every record, stated once more and by hand, and what becomes of values that break them.

#include "model/Json.h"

#include <boost/pfr.hpp>
#include <gtest/gtest.h>

namespace Velmora {
namespace {

// The keys of a record's members in the order of their declaration: "reply", or "reply=host" where hosts know
// another; "object.key" lies deeper in a reply. '*': hosts may state it (integers in 32 bits). '#': 32 bits in a reply.
template <class R> constexpr const char *keys;
template <> constexpr const char *keys<ApiError> = "errorCode errorTitle errorMessage";
template <> constexpr const char *keys<CloudFile> = "jobId* fileName* fileSize* fileDate fileHash directory*";
template <> constexpr const char *keys<FileDownloadDetails> = "localFileLocation* cloudFileDetails*";
template <> constexpr const char *keys<FileUploadDetails> = "localFileLocation* cloudFileJobID* totalFileSize*";
template <> constexpr const char *keys<ItemTag> = "tag=tagText* type=tagType*";
template <>
constexpr const char *keys<UserDetails> =
    "userId cognitoEmail=userEmail lastName=surname firstName=forename companyName";
template <>
constexpr const char *keys<AccountAccess> =
    "accountId=accountID cognitoEmail=userEmail maxCoreHourRequest accountAdmin hasMFA";
template <>
constexpr const char *keys<AccountDetails> =
    "account.accountId=accountId account.accountName=accountName account.overageEnabled=overageEnabled "
    "account.billingEnabled=billingEnabled account.planCode=planCode account.accountCreated=accountCreated# "
    "accountAccess";
template <>
constexpr const char *keys<AccountTransaction> =
    "accountId transactionId jobId simulationId transactionType transactionDescription cognitoEmail userId "
    "transactionAmount transactionDate invoiceSubmitted invoiceRequired invoiceAccepted";
template <> constexpr const char *keys<AccountBalance> = "accountId coreHoursAvailable recentTransactions";
template <>
constexpr const char *keys<HpcDetails> =
    "hpcId hpcActive hpcCloud hpcClusterName hpcDescription hpcRegion hpcAccountBucket";
template <> constexpr const char *keys<JobStatusEntry> = "jobId jobStatus jobStatusDate";
template <>
constexpr const char *keys<SimulationStatusEntry> = "jobId simulationId simulationStatus simulationStatusDate";
template <> constexpr const char *keys<SimulationDetails> = "simulationId consoleParameters simulationStatus";
template <>
constexpr const char *keys<JobDetails> =
    "jobId accountId jobName dockerTag coresRequired coreHourEstimate ramEstimate mainFile precision numberOfParts "
    "fileDependencies fileAliases operation simulations jobStatus jobType";
template <> constexpr const char *keys<SimulationProgress> = "simulationId progress";
template <> constexpr const char *keys<JobProgress> = "jobId simulationProgressList";
template <> constexpr const char *keys<SimulationAbortState> = "jobId=jobID simulationId=simID status";

struct Member {
    QString reply, host;
    bool input, narrow;
};

/// Calls `visit` with each member's keys and the member itself.
template <class R, class Visit> void each(R &record, Visit visit)
{
    QStringList all = QString::fromLatin1(keys<std::remove_const_t<R>>).split(QLatin1Char(' '));
    ASSERT_EQ(std::size_t(all.size()), boost::pfr::tuple_size_v<std::remove_const_t<R>>);
    boost::pfr::for_each_field(record, [&](auto &field) {
        QString key = all.takeFirst();
        const bool input = key.endsWith(QLatin1Char('*')), narrow = key.endsWith(QLatin1Char('#'));
        const QStringList names = key.remove(QLatin1Char('*')).remove(QLatin1Char('#')).split(QLatin1Char('='));
        visit(Member{names.first(), names.last(), input, narrow}, field);
    });
}

template <class T> T sample(int seed, int position = 0)
{
    T value{};
    if constexpr (std::is_same_v<T, std::string>)
        value = QStringLiteral("%1 \u00fcber \u65e5\u672c \"%2\"").arg(position).arg(seed).toStdString();
    else if constexpr (std::is_same_v<T, bool>)
        value = ((position >> (seed % 4)) & 1) != 0; // over seeds 0 to 3 any two of sixteen differ at least once
    else if constexpr (std::is_arithmetic_v<T>)
        value = static_cast<T>(2000000000.25 + position);
    else if constexpr (Detail::IsList<T>::value)
        value = {sample<typename T::value_type>(seed, position + 100),
                 sample<typename T::value_type>(seed + 1, position)};
    else
        each(value,
             [&](const Member &, auto &field) { field = sample<std::decay_t<decltype(field)>>(seed, ++position); });
    return value;
}

void put(QJsonObject &object, const QString &path, const QJsonValue &value)
{
    const QStringList way = path.split(QLatin1Char('.'));
    QJsonObject inner = object.value(way.first()).toObject();
    inner.insert(way.last(), value);
    object.insert(way.first(), way.size() == 1 ? value : QJsonValue(inner));
}

template <class T> QJsonValue json(const T &value, Form form)
{
    if constexpr (std::is_same_v<T, std::string>) {
        return QString::fromUtf8(value.c_str());
    } else if constexpr (std::is_same_v<T, bool>) {
        return form != Form::Host ? QJsonValue(value) : QLatin1String(value ? "true" : "false");
    } else if constexpr (std::is_same_v<T, long long>) {
        return qint64(value);
    } else if constexpr (std::is_arithmetic_v<T>) {
        return value;
    } else if constexpr (Detail::IsList<T>::value) {
        QJsonArray array;
        for (const auto &element : value)
            array.append(json(element, form));
        return array;
    } else {
        QJsonObject object;
        each(value, [&](const Member &member, const auto &field) {
            put(object, form == Form::Reply ? member.reply : member.host, json(field, form));
        });
        return object;
    }
}

std::string text(const QJsonObject &object) { return QJsonDocument(object).toJson().toStdString(); }
template <class R> std::string text(const R &record) { return text(json(record, Form::Reply).toObject()); }

QJsonValue parsed(const QByteArray &value) { return QJsonDocument::fromJson('[' + value + ']').array().first(); }

template <class R> R read(const QByteArray &sent, Form form)
{
    return form == Form::Reply ? readReply<R>(sent) : readHostText<R>(sent);
}

/// What a record keeps of itself when it is passed as text.
template <class R> R passed(R record, Form form)
{
    each(record, [&](const Member &member, auto &field) {
        if (form == Form::HostInput && !member.input)
            field = {};
        else if constexpr (Detail::IsRecord<std::decay_t<decltype(field)>>::value)
            field = passed(field, form);
    });
    return record;
}

/// A value that a field may hold against all promises, and what each kind of field reads from it.
struct Wrong {
    const char *value;
    const char *asText = "";
    int asInt = 0;
    long long asLong = 0;
    double asNumber = 0;
    bool asFlag = false;

    template <class T> T as(bool narrow) const
    {
        if constexpr (std::is_same_v<T, std::string>)
            return asText;
        else if constexpr (std::is_same_v<T, bool>)
            return asFlag;
        else if constexpr (std::is_same_v<T, double>)
            return asNumber;
        else if constexpr (std::is_arithmetic_v<T>)
            return narrow || std::is_same_v<T, int> ? asInt : static_cast<T>(asLong);
        T result;
        if constexpr (Detail::IsList<T>::value) {
            for (const QJsonValue &element : parsed(value).toArray()) {
                result.emplace_back();
                if constexpr (std::is_same_v<T, std::list<std::string>>)
                    result.back() = element.toString().toStdString();
            }
        }
        return result;
    }
};

constexpr long long unsettled = -1; // it must only be survived
constexpr Wrong wrongValues[] = {
    {"null"},
    {"true", "", 0, 1, 0, true},
    {"false"},
    {"7", "", 7, 7, 7},
    {"1.5", "", 0, 2, 1.5},
    {R"("12")", "12", 0, 12},
    {R"("true")", "true"},
    {R"("word")", "word"},
    {"2147483647", "", 2147483647, 2147483647, 2147483647},
    {"2147483648", "", 0, 2147483648, 2147483648},
    {"-2147483648", "", -2147483647 - 1, -2147483648, -2147483648},
    {"9007199254740993", "", 0, 9007199254740993, 9007199254740992},
    {"1e300", "", 0, unsettled, 1e300},
    {R"({"a": 1})"},
    {"[]"},
    {R"([1, "b", null, {"a": 1}])"},
};

/// Reads what it should, and puts every wrong value, and none at all, in the place of every field.
template <class R> void checkReading(Form form)
{
    for (int seed = 0; seed < 4; ++seed) {
        const QByteArray sent = QJsonDocument(json(sample<R>(seed), form).toObject()).toJson();
        EXPECT_EQ(text(read<R>(sent, form)), text(passed(sample<R>(seed), form)));
    }
    R broken = passed(sample<R>(0), form);
    each(broken, [&](const Member &member, auto &field) {
        using Value = std::decay_t<decltype(field)>;
        const auto check = [&](const QJsonValue &value, const Value &expected, const char *what) {
            QJsonObject object = json(sample<R>(0), form).toObject();
            put(object, form == Form::Reply ? member.reply : member.host, value);
            const R record = read<R>(QJsonDocument(object).toJson(), form);
            if constexpr (std::is_same_v<Value, long long>) {
                if (expected == unsettled)
                    return;
            }
            const Value before = std::exchange(field, expected);
            EXPECT_EQ(text(record), text(broken)) << member.reply.toStdString() << " given " << what;
            field = before;
        };
        if (form == Form::HostInput && !member.input)
            return;
        check(QJsonValue::Undefined, Value{}, "nothing");
        for (const Wrong &wrong : wrongValues)
            check(parsed(wrong.value), wrong.as<Value>(member.narrow || form == Form::HostInput), wrong.value);
    });
    for (const char *noObject : {"", "not JSON", "{", "[]", "[{}]", "7", "null", R"({"jobId": 1e999})"})
        EXPECT_EQ(text(read<R>(noObject, form)), text(R{})) << noObject;
}

template <class R> void checkReplyLists()
{
    const QJsonValue first = json(sample<R>(1), Form::Reply), last = json(sample<R>(2), Form::Reply);
    const QJsonArray array{first, 7, QJsonValue::Null, QStringLiteral("x"), QJsonArray{first}, last};
    const std::list<R> expected{sample<R>(1), {}, {}, {}, {}, sample<R>(2)};
    EXPECT_EQ(json(readReplyList<R>(QJsonDocument(array).toJson()), Form::Reply), json(expected, Form::Reply));
    for (const char *noArray : {"", "{}", "nonsense", "[1, 2", "null"})
        EXPECT_TRUE(readReplyList<R>(QByteArray(noArray)).empty()) << noArray;
}

template <class R> void checkHostForm()
{
    for (int seed = 0; seed < 4; ++seed)
        EXPECT_EQ(hostText(sample<R>(seed)), text(json(sample<R>(seed), Form::Host).toObject()));
}

template <class R> void checkWrapper(const char *key)
{
    const std::list<R> records{sample<R>(0), R{}, sample<R>(1)};
    EXPECT_EQ(hostText(records), text({{QLatin1String(key), json(records, Form::Host)}}));
}

template <class... R> struct Records {
    static void read(Form form) { (checkReading<R>(form), ...); }
    static void readLists() { (checkReplyLists<R>(), ...); }
    static void write() { (checkHostForm<R>(), ...); }
};

TEST(ReplyForm, ReadsEveryFieldAndSurvivesWrongValues)
{
    using All = Records<CloudFile, ItemTag, UserDetails, AccountAccess, AccountDetails, AccountTransaction,
                        AccountBalance, HpcDetails, JobStatusEntry, SimulationStatusEntry, SimulationDetails,
                        JobDetails, SimulationProgress, JobProgress, SimulationAbortState>;
    All::read(Form::Reply);
    All::readLists();
    for (const char *noAccount : {R"({"account": 5})", R"({"account": [{"accountId": "a"}]})",
                                  R"({"accountId": "a", "accountName": "outside"})"})
        EXPECT_EQ(text(readReply<AccountDetails>(noAccount)), text(AccountDetails{})) << noAccount;
}

TEST(HostForm, WritesEveryFieldUnderItsKey)
{
    Records<ApiError, CloudFile, FileDownloadDetails, FileUploadDetails, ItemTag, UserDetails, AccountAccess,
            AccountDetails, JobStatusEntry, SimulationStatusEntry, SimulationDetails, JobDetails,
            SimulationAbortState>::write();
    checkWrapper<ItemTag>("itemTagList");
    checkWrapper<JobDetails>("jobDetailsList");
    checkWrapper<CloudFile>("fileList");
    checkWrapper<AccountDetails>("accountDetailsList");
    checkWrapper<SimulationAbortState>("simulationAbortList");
    EXPECT_EQ(hostText(std::list<ItemTag>{}), "{\n    \"itemTagList\": [\n    ]\n}\n");
    CloudFile file;
    file.jobId = "j";
    file.fileName = "f%1";
    file.fileSize = 5000000000;
    file.directory = true;
    EXPECT_EQ(hostText(file), R"({
    "directory": "true",
    "fileDate": 0,
    "fileHash": "",
    "fileName": "f%1",
    "fileSize": 5000000000,
    "jobId": "j"
}
)");
}

TEST(HostInput, ReadsItsFieldsAndNoOthers)
{
    Records<FileDownloadDetails, FileUploadDetails, ItemTag, CloudFile>::read(Form::HostInput);
}

TEST(ReplyForm, CleansConsoleParameters)
{
    constexpr const char *cases[][2] = {{"-noterm -s  -x 3 ", "-x 3"},
                                        {"a -noterm -s b -noterm -s c", "a  b  c"},
                                        {"-Noterm -s -x", "-Noterm -s -x"},
                                        {"-noterm  -s -x", "-noterm  -s -x"},
                                        {"\t -x %1\n", "-x %1"}};
    for (const auto &[sent, expected] : cases) {
        const QJsonObject body{{QStringLiteral("consoleParameters"), QLatin1String(sent)}};
        EXPECT_EQ(readReply<SimulationDetails>(QJsonDocument(body).toJson()).consoleParameters, expected) << sent;
    }
    SimulationDetails uncleaned; // only replies are cleaned
    uncleaned.consoleParameters = " -noterm -s ";
    EXPECT_NE(hostText(uncleaned).find("\" -noterm -s \""), std::string::npos);
}

} // namespace
} // namespace Velmora
