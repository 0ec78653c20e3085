// The field tables, stated once more by hand, and what their readers and writers make of every kind of value.

#include "model/Json.h"

#include <boost/pfr.hpp>
#include <gtest/gtest.h>

namespace Velmora {
namespace {

// A record's keys in the order of its members: "reply", or "reply=host" where hosts know another; "object.key" lies
// deeper in a reply. '*': hosts may state it (integers in 32 bits). '#': 32 bits in a reply. '~': cleaned in a reply.
template <class R> constexpr const char *keys = nullptr;
#define KEYS(R, text) template <> constexpr const char *keys<R> = text
KEYS(ApiError, "errorCode errorTitle errorMessage");
KEYS(CloudFile, "jobId* fileName* fileSize* fileDate fileHash directory*");
KEYS(FileDownloadDetails, "localFileLocation* cloudFileDetails*");
KEYS(FileUploadDetails, "localFileLocation* cloudFileJobID* totalFileSize*");
KEYS(ItemTag, "tag=tagText* type=tagType*");
KEYS(UserDetails, "userId cognitoEmail=userEmail lastName=surname firstName=forename companyName");
KEYS(AccountAccess, "accountId=accountID cognitoEmail=userEmail maxCoreHourRequest accountAdmin hasMFA");
KEYS(AccountDetails, "account.accountId account.accountName account.overageEnabled account.billingEnabled "
                     "account.planCode account.accountCreated# accountAccess");
KEYS(AccountTransaction,
     "accountId transactionId jobId simulationId transactionType transactionDescription cognitoEmail=userEmail userId "
     "transactionAmount transactionDate invoiceSubmitted invoiceRequired invoiceAccepted");
KEYS(AccountBalance, "accountId coreHoursAvailable recentTransactions");
KEYS(HpcDetails, "hpcId hpcActive hpcCloud hpcClusterName hpcDescription hpcRegion hpcAccountBucket");
KEYS(JobStatusEntry, "jobId jobStatus jobStatusDate");
KEYS(SimulationStatusEntry, "jobId simulationId simulationStatus simulationStatusDate");
KEYS(SimulationDetails, "simulationId consoleParameters~ simulationStatus");
KEYS(JobDetails, "jobId accountId jobName dockerTag coresRequired coreHourEstimate ramEstimate mainFile precision "
                 "numberOfParts fileDependencies fileAliases operation simulations jobStatus jobType");
KEYS(SimulationProgress, "simulationId progress");
KEYS(JobProgress, "jobId simulationProgressList");
KEYS(SimulationAbortState, "jobId=jobID simulationId=simID status");
KEYS(JobSubmit, "jobId=jobID* accountId=accountID* jobName* coresRequired* coreHourEstimate* ramEstimate* mainFile* "
                "dockerTag=solverTag* fileDependencies=dependentFilesList* fileAliases=dependentFilesAliasList* "
                "simulations* application=originApplication*");

template <class R> void checkTable()
{
    std::string text;
    const R record{};
    const void *before = nullptr;
    forEachField<R>([&](const auto &field) {
        const std::string reply = field.replyKey, host = field.hostKey;
        text += text.empty() ? "" : " ";
        text += field.replyObject ? field.replyObject + ("." + reply) : reply;
        text += (reply == host ? "" : "=" + host) + (field.input ? "*" : "");
        text += std::string(field.replyWidth == Width::Int32 ? "#" : "") + (field.clean ? "~" : "");
        EXPECT_LT(before, &(record.*field.member)) << host << " is out of the record's order";
        before = &(record.*field.member);
    });
    EXPECT_EQ(text, keys<R>);
    if constexpr (std::is_aggregate_v<R>) {
        EXPECT_EQ(std::tuple_size_v<decltype(Schema<R>::fields())>, boost::pfr::tuple_size_v<R>) << text;
    }
}

/// Every value of a record another one.
template <class T> T sample(int position = 0)
{
    T value{};
    if constexpr (std::is_same_v<T, std::string>)
        value = std::to_string(position) + " \u00fcber \u65e5\u672c \"%1\"";
    else if constexpr (std::is_arithmetic_v<T>)
        value = static_cast<T>(2000000000.25 + position);
    else if constexpr (Detail::IsList<T>::value)
        value = {sample<typename T::value_type>(position + 100), sample<typename T::value_type>(position)};
    else
        forEachField<T>([&](const auto &field) {
            value.*field.member = sample<std::decay_t<decltype(value.*field.member)>>(++position);
        });
    return value;
}

template <class Field> void put(QJsonObject &object, Form form, const Field &field, const QJsonValue &value)
{
    const QLatin1String key(form == Form::Reply ? field.replyKey : field.hostKey);
    const QLatin1String outer(form == Form::Reply ? field.replyObject : nullptr);
    QJsonObject inner = outer.data() ? object.value(outer).toObject() : object;
    inner.insert(key, value);
    outer.data() ? void(object.insert(outer, inner)) : object.swap(inner);
}

template <class R> QByteArray text(const R &record) { return toText(writeRecord(record, Form::Reply)); }
QJsonValue parsed(const QByteArray &value) { return QJsonDocument::fromJson('[' + value + ']').array().first(); }

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

constexpr Wrong wrongValues[] = {
    {""}, // no value at all
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
    {R"({"a": 1})"},
    {"[]"},
    {R"([1, "b", null, {"a": 1}])"},
};

template <class R> void checkReading(Form form)
{
    R record = sample<R>();
    QJsonObject whole;
    forEachField<R>([&](const auto &field) {
        put(whole, form, field, Detail::writeValue(record.*field.member, Form::Reply));
        if (form == Form::HostInput && !field.input)
            record.*field.member = {};
    });
    EXPECT_EQ(text(readRecord<R>(whole, form)), text(record));
    forEachField<R>([&](const auto &field) {
        for (const Wrong &wrong : wrongValues) {
            QJsonObject broken = whole;
            put(broken, form, field, parsed(wrong.value));
            R expected = record;
            if (form == Form::Reply || field.input)
                expected.*field.member = wrong.as<std::decay_t<decltype(expected.*field.member)>>(
                    form == Form::HostInput || field.replyWidth == Width::Int32);
            EXPECT_EQ(text(readRecord<R>(broken, form)), text(expected)) << field.hostKey << " given " << wrong.value;
        }
    });
}

template <class... R> struct Records {
    static void check() { (checkTable<R>(), ...); }
    static void read(Form form) { (checkReading<R>(form), ...); }
};
using Input = Records<FileUploadDetails, ItemTag, CloudFile, JobSubmit>;
using Reply = Records<CloudFile, ItemTag, UserDetails, AccountAccess, AccountDetails, AccountTransaction,
                      AccountBalance, HpcDetails, JobStatusEntry, SimulationStatusEntry, SimulationDetails, JobDetails,
                      SimulationProgress, JobProgress, SimulationAbortState>;

TEST(Records, NameEveryFieldInItsOrder)
{
    Reply::check();
    Input::check();
    Records<ApiError, FileDownloadDetails>::check();
}

TEST(Records, AreReadAndSurviveWrongValues)
{
    Reply::read(Form::Reply);
    Input::read(Form::HostInput);
    for (const char *noObject :
         {"", "not JSON", "{", "[]", "[{}]", "7", "null", R"({"jobId": 1e999})", R"({"account": 5})",
          R"({"account": [{"accountId": "a"}]})", R"({"accountId": "a", "accountName": "outside"})"}) {
        EXPECT_EQ(text(readReply<AccountDetails>(noObject)), text(AccountDetails{})) << noObject;
        EXPECT_EQ(text(readHostText<CloudFile>(noObject)), text(CloudFile{})) << noObject;
        EXPECT_TRUE(readReplyList<HpcDetails>(QByteArray(noObject)).size() ==
                    (noObject == std::string("[{}]") ? 1 : 0));
    }
    const auto listed =
        readReplyList<HpcDetails>(QByteArray(R"([{"hpcId":"a"},7,null,"x",[{"hpcId":"b"}],{"hpcId":"c"}])"));
    EXPECT_EQ(listed.size(), 6U);
    EXPECT_EQ(listed.front().hpcId + std::next(listed.begin(), 4)->hpcId + listed.back().hpcId, "ac");
}

template <class R> void checkList(const char *key)
{
    const R record = sample<R>();
    const QJsonArray expected{writeRecord(record, Form::Host), writeRecord(R{}, Form::Host)};
    EXPECT_EQ(hostText(std::list<R>{record, {}}), toText({{QLatin1String(key), expected}}).toStdString());
}

TEST(Records, AreWrittenForHosts)
{
    checkList<ItemTag>("itemTagList");
    checkList<JobDetails>("jobDetailsList");
    checkList<CloudFile>("fileList");
    checkList<AccountDetails>("accountDetailsList");
    checkList<SimulationAbortState>("simulationAbortList");
    EXPECT_EQ(hostText(std::list<ItemTag>{}), "{\n    \"itemTagList\": [\n    ]\n}\n");
    const CloudFile file{"j", "f%1 \u00fc", 5000000000, 0, "", true};
    EXPECT_EQ(hostText(file), R"({
    "directory": "true",
    "fileDate": 0,
    "fileHash": "",
    "fileName": "f%1 ü",
    "fileSize": 5000000000,
    "jobId": "j"
}
)");
    JobDetails job;
    job.coreHourEstimate = 2.5;
    job.fileAliases = {"x", ""};
    job.simulations = {{"s", " -noterm -s ", {{"j", "s", "RUNNING", 1}}}};
    const QJsonObject written = writeRecord(job, Form::Host);
    const QJsonDocument expected = QJsonDocument::fromJson(R"([2.5, ["x", ""], [{"simulationId": "s",
        "consoleParameters": " -noterm -s ", "simulationStatus": [{"jobId": "j", "simulationId": "s",
        "simulationStatus": "RUNNING", "simulationStatusDate": 1}]}]])");
    EXPECT_EQ(expected.array(),
              (QJsonArray{written["coreHourEstimate"], written["fileAliases"], written["simulations"]}));
}

TEST(Records, AreReadWithoutFixedSwitches)
{
    constexpr const char *cases[][2] = {{"-noterm -s  -x 3 ", "-x 3"},
                                        {"a -noterm -s b -noterm -s c", "a  b  c"},
                                        {"-Noterm -s -x", "-Noterm -s -x"},
                                        {"-noterm  -s -x", "-noterm  -s -x"},
                                        {"\t -x %1\n", "-x %1"}};
    for (const auto &[sent, expected] : cases) {
        const QJsonObject body{{"consoleParameters", QLatin1String(sent)}};
        EXPECT_EQ(readReply<SimulationDetails>(QJsonDocument(body).toJson()).consoleParameters, expected) << sent;
    }
}

} // namespace
} // namespace Velmora
