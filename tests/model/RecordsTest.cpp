// The field tables, written out once more, and what readers, writers and views make of them.

#include "flat/Application.h"

#include <boost/pfr.hpp>

#include <sstream>

namespace {

// A record's keys in the order of its members, as in "hpcId account.planCode tag=tagText* accountCreated#":
// "reply", or "reply=application" where applications use another key; "object.key" lies inside an object of the reply;
// '*': applications may give it (integers in 32 bits); '#': 32 bits in a reply; '~': cleaned in a reply.
template <class R> void checkTable(const char *keys)
{
    std::string text;
    const R record{};
    const void *before = nullptr;
    forEachField<R>([&](const auto &field) {
        const std::string reply = field.replyKey, host = field.textKey;
        text += text.empty() ? "" : " ";
        text += field.replyObject ? field.replyObject + ("." + reply) : reply;
        text += (reply == host ? "" : "=" + host) + (field.input ? "*" : "");
        text += std::string(field.replyWidth == Width::Int32 ? "#" : "") + (field.clean ? "~" : "");
        const bool isLong = std::is_same_v<decltype(record.*field.member), const long long &>;
        EXPECT_EQ(field.inputWidth == Width::Int32, field.input && isLong) << host;
        EXPECT_LT(before, &(record.*field.member)) << host << " is out of the record's order";
        before = &(record.*field.member);
    });
    EXPECT_EQ(text, keys);
    if constexpr (std::is_aggregate_v<R>) {
        EXPECT_EQ(std::tuple_size_v<decltype(Schema<R>::fields())>, boost::pfr::tuple_size_v<R>) << text;
    }
}

/// A record whose values all differ; flags cannot, so that any two differ for at least one of five bits.
template <class T> T sample(int bit, int position = 0)
{
    T value{};
    if constexpr (std::is_same_v<T, std::string>)
        value = std::to_string(position) + " \u00fcber";
    else if constexpr (std::is_same_v<T, bool>)
        value = ((position >> bit) & 1) != 0;
    else if constexpr (std::is_arithmetic_v<T>)
        value = static_cast<T>(2000000000.25 + position);
    else if constexpr (Detail::IsList<T>::value)
        value = {sample<typename T::value_type>(bit, position + 100), sample<typename T::value_type>(bit, position)};
    else
        forEachField<T>([&](const auto &field) {
            value.*field.member = sample<std::decay_t<decltype(value.*field.member)>>(bit, ++position);
        });
    return value;
}

template <class R> QByteArray text(const R &record) { return toText(writeRecord(record, Form::Reply)); }
QJsonArray parsed(const char *array) { return QJsonDocument::fromJson(array).array(); }

template <class R> void checkView()
{
    for (int bit = 0; bit < 5; ++bit) {
        const R record = sample<R>(bit);
        EXPECT_EQ(text(recordOf(toView(record))), text(record));
    }
}

TEST(RecordsTest, fieldTable_everyRecord_namesEachFieldInOrder)
{
    checkTable<ApiError>("errorCode errorTitle errorMessage");
    checkTable<ClientOptions>("keepAlive answerTimeout stallTimeout transferRetries uploadBytesPerSecond "
                              "downloadBytesPerSecond connectionsPerHost caFile");
    checkTable<CloudFile>("jobId* fileName* fileSize* fileDate fileHash directory*");
    checkTable<FileDownloadDetails>("localFileLocation* cloudFileDetails*");
    checkTable<FileUploadDetails>("localFileLocation* cloudFileJobID* totalFileSize*");
    checkTable<DeleteFileDetails>("jobId* simulationId* fileName*");
    checkTable<ProxyDefinition>("proxyHost proxyUser proxyPassword proxyPort proxyType");
    checkTable<ItemTag>("tag=tagText* type=tagType*");
    checkTable<UserDetails>("userId cognitoEmail=userEmail lastName=surname firstName=forename companyName");
    checkTable<AccountAccess>("accountId=accountID cognitoEmail=userEmail maxCoreHourRequest accountAdmin hasMFA");
    checkTable<AccountDetails>("account.accountId account.accountName account.overageEnabled account.billingEnabled "
                               "account.planCode account.accountCreated# accountAccess");
    checkTable<AccountTransaction>(
        "accountId transactionId jobId simulationId transactionType transactionDescription cognitoEmail=userEmail "
        "userId transactionAmount transactionDate invoiceSubmitted invoiceRequired invoiceAccepted");
    checkTable<AccountBalance>("accountId coreHoursAvailable recentTransactions");
    checkTable<HpcDetails>("hpcId hpcActive hpcCloud hpcClusterName hpcDescription hpcRegion hpcAccountBucket");
    checkTable<JobStatusEntry>("jobId jobStatus jobStatusDate");
    checkTable<SimulationStatusEntry>("jobId simulationId simulationStatus simulationStatusDate");
    checkTable<SimulationDetails>("simulationId consoleParameters~ simulationStatus");
    checkTable<JobDetails>(
        "jobId accountId jobName dockerTag coresRequired coreHourEstimate ramEstimate mainFile precision "
        "numberOfParts fileDependencies fileAliases operation simulations jobStatus jobType");
    checkTable<SimulationProgress>("simulationId progress");
    checkTable<JobProgress>("jobId simulationProgressList");
    checkTable<SimulationAbortState>("jobId=jobID simulationId=simID status");
    checkTable<JobSubmit>(
        "jobId=jobID* accountId=accountID* jobName* coresRequired* coreHourEstimate* ramEstimate* mainFile* "
        "precision=jobPrecision* dockerTag=solverTag* fileDependencies=dependentFilesList* "
        "fileAliases=dependentFilesAliasList* operation* simulations* application=originApplication*");
}

TEST(RecordsTest, view_everyRecord_holdsEachField)
{
#define VIEW(Record, ...) checkView<Record>();
#include "Views.inc"
#undef VIEW
}

TEST(RecordsTest, options_asText_startFromTheirDefaults)
{
    const auto read = [](const QByteArray &text) {
        std::ostringstream values;
        values << boost::pfr::io(readInput<ClientOptions>(text));
        return values.str();
    };
    const std::string none = R"({0, 0, 0, 0, 0, 0, 0, ""})", robust = R"({1, 120, 60, 5, 0, 0, 0, ""})";
    for (const char *text : {"", "no JSON", "[]", "{}", R"({"robust": false})", R"({"robust": "true"})",
                             R"({"keepAlive": 1, "stallTimeout": "7", "uploadBytesPerSecond": "7", "caFile": 7})",
                             R"({"answerTimeout": 1.5, "transferRetries": 1e10, "connectionsPerHost": null})"})
        EXPECT_EQ(read(text), none) << text;
    EXPECT_EQ(read(R"({"robust": true, "keepAlive": "false"})"), robust);
    EXPECT_EQ(read(R"({"robust": true, "keepAlive": false, "answerTimeout": 0})"), R"({0, 0, 60, 5, 0, 0, 0, ""})");
    EXPECT_EQ(read(R"({"keepAlive": true, "answerTimeout": 1, "stallTimeout": 2, "transferRetries": 3, "caFile": "a",
                       "uploadBytesPerSecond": 4294967296, "downloadBytesPerSecond": 5, "connectionsPerHost": 6})"),
              R"({1, 1, 2, 3, 4294967296, 5, 6, "a"})");
    EXPECT_EQ(readInput<ProxyDefinition>(R"({"proxyHost": "h", "proxyType": "1"})").proxyType, -1) << "sets none";
    const auto proxy = readInput<ProxyDefinition>(
        R"({"proxyHost": "h", "proxyUser": "u", "proxyPassword": "p", "proxyPort": 8080, "proxyType": 1})");
    EXPECT_EQ(proxy.proxyHost + proxy.proxyUser + proxy.proxyPassword, "hup");
    EXPECT_EQ(proxy.proxyPort * 10 + proxy.proxyType, 80801);
}

TEST(RecordsTest, reader_wrongValues_givesDefaults)
{
    constexpr std::tuple<const char *, const char *, int, long long, double, bool> rows[] = {
        // value; as text, as int, as long long, as double, as flag
        {"[]", "", 0, 0, 0, false}, // no value
        {"[null]", "", 0, 0, 0, false},
        {"[true]", "", 0, 1, 0, true},
        {"[1.5]", "", 0, 2, 1.5, false},
        {R"(["12"])", "12", 0, 12, 0, false},
        {R"(["true"])", "true", 0, 0, 0, false},
        {"[2147483647]", "", 2147483647, 2147483647, 2147483647, false},
        {"[2147483648]", "", 0, 2147483648, 2147483648, false},
        {"[9007199254740993]", "", 0, 9007199254740993, 9007199254740992, false},
        {"[9223372036854775807]", "", 0, 9223372036854775807, 9223372036854775807.0, false},
        {"[9223372036854775808]", "", 0, 0, 9223372036854775808.0, false},
        {"[-1e300]", "", 0, 0, -1e300, false},
        {R"(["9223372036854775808"])", "9223372036854775808", 0, 0, 0, false},
        {R"([{"a": 1}])", "", 0, 0, 0, false},
        {"[[1]]", "", 0, 0, 0, false}};
    for (const auto &[value, asText, asInt, asLong, asNumber, asFlag] : rows) {
        const auto read = [json = parsed(value).first()](auto like, Width width = Width::Natural) {
            return Detail::readValue<decltype(like)>(json, Form::Reply, width);
        };
        EXPECT_EQ(read(std::string()), asText) << value;
        EXPECT_EQ(read(0), asInt) << value;
        EXPECT_EQ(read(0LL), asLong) << value;
        EXPECT_EQ(read(0LL, Width::Int32), asInt) << value;
        EXPECT_EQ(read(0.0), asNumber) << value;
        EXPECT_EQ(read(false), asFlag) << value;
    }
    for (const char *noObject : {"", "{", "[{}]", R"({"jobId": 1e999})", R"({"account": [{"accountId": "a"}]})"}) {
        EXPECT_EQ(text(readReply<AccountDetails>(noObject)), text(AccountDetails{})) << noObject;
        EXPECT_EQ(text(readInput<CloudFile>(noObject)), text(CloudFile{})) << noObject;
    }
}

TEST(RecordsTest, readerAndWriter_everyForm_useItsNames)
{
    const auto account = readReply<AccountDetails>(R"({"account": {"accountId": "a", "accountCreated": 2147483648},
        "accountName": "outside", "accountAccess": {"accountId": "b", "accountID": "c"}})");
    EXPECT_EQ(account.accountId + account.accountName + account.accountAccess.accountID, "ab");
    EXPECT_EQ(account.accountCreated, 0);
    const char *const file = R"({
    "directory": "true",
    "fileDate": 1,
    "fileHash": "h",
    "fileName": "f%1 ü",
    "fileSize": 5000000000,
    "jobId": "j"
}
)";
    EXPECT_EQ(outputText(CloudFile{"j", "f%1 \u00fc", 5000000000, 1, "h", true}), file);
    EXPECT_EQ(text(readInput<CloudFile>(file)), text(CloudFile{"j", "f%1 \u00fc", 0, 0, "", false}));
    EXPECT_EQ(text(readReply<CloudFile>(file)), text(CloudFile{"j", "f%1 \u00fc", 5000000000, 1, "h", false}));
    const auto job = readReply<JobDetails>(R"({"coreHourEstimate": 2.5, "simulations": [7, {"simulationId": "s",
        "consoleParameters": "\t-noterm -s -Noterm -s -noterm -s\n",
        "simulationStatus": [{"simulationStatusDate": 5000000000}]}]})");
    EXPECT_EQ(job.coreHourEstimate, 2.5);
    EXPECT_EQ(writeRecord(job, Form::Output)["simulations"].toArray(), parsed(R"([{"simulationId": "",
        "consoleParameters": "", "simulationStatus": []}, {"simulationId": "s", "consoleParameters": "-Noterm -s",
        "simulationStatus": [{"jobId": "", "simulationId": "", "simulationStatus": "",
        "simulationStatusDate": 5000000000}]}])"));
    EXPECT_EQ(outputText(std::list<CloudFile>{}), "{\n    \"fileList\": [\n    ]\n}\n");
    EXPECT_STREQ(Schema<ItemTag>::listKey, "itemTagList");
    EXPECT_STREQ(Schema<JobDetails>::listKey, "jobDetailsList");
    EXPECT_STREQ(Schema<AccountDetails>::listKey, "accountDetailsList");
    EXPECT_STREQ(Schema<SimulationAbortState>::listKey, "simulationAbortList");
}

} // namespace
