#include "Tables.h"

#include "model/Json.h"

#include <gtest/gtest.h>

namespace Velmora {
namespace {

QJsonValue parsed(const QByteArray &value) { return QJsonDocument::fromJson('[' + value + ']').array().first(); }

std::string text(const QJsonObject &object) { return QJsonDocument(object).toJson().toStdString(); }

/// A value that a field may hold against all promises, and what each kind of field reads from it.
struct Wrong {
    const char *value;
    const char *text;
    const char *int32;
    const char *int64; ///< null: not settled, it must only be survived
    const char *number;
    const char *flag;
};

constexpr Wrong wrongValues[] = {
    {"null", R"("")", "0", "0", "0", "false"},
    {"true", R"("")", "0", "1", "0", "true"},
    {"false", R"("")", "0", "0", "0", "false"},
    {"7", R"("")", "7", "7", "7", "false"},
    {"1.5", R"("")", "0", "2", "1.5", "false"},
    {R"("12")", R"("12")", "0", "12", "0", "false"},
    {R"("true")", R"("true")", "0", "0", "0", "false"},
    {R"("word")", R"("word")", "0", "0", "0", "false"},
    {"2147483647", R"("")", "2147483647", "2147483647", "2147483647", "false"},
    {"2147483648", R"("")", "0", "2147483648", "2147483648", "false"},
    {"-2147483648", R"("")", "-2147483648", "-2147483648", "-2147483648", "false"},
    {"9007199254740993", R"("")", "0", "9007199254740993", "9007199254740992", "false"},
    {"1e300", R"("")", "0", nullptr, "1e300", "false"},
    {R"({"a": 1})", R"("")", "0", "0", "0", "false"},
    {"[]", R"("")", "0", "0", "0", "false"},
    {R"([1, "b", null, {"a": 1}])", R"("")", "0", "0", "0", "false"},
};

const char *expectedOf(const Wrong &wrong, Kind kind)
{
    switch (kind) {
    case Kind::Text:
        return wrong.text;
    case Kind::Int32:
        return wrong.int32;
    case Kind::Int64:
        return wrong.int64;
    case Kind::Number:
        return wrong.number;
    case Kind::Flag:
        return wrong.flag;
    case Kind::Texts:
        return wrong.value[0] == '[' && wrong.value[1] != ']' ? R"(["", "b", "", ""])" : "[]";
    case Kind::Record:
    case Kind::Records:
        break;
    }
    return nullptr;
}

/// Puts every wrong value, and none at all, in the place of every field, and reads the rest as ever.
template <class R> void readsWrongValues(Form form)
{
    const bool reply = form == Form::Reply;
    const QJsonObject good = document<R>(reply ? Shape::Reply : Shape::Input, 0);
    const QJsonObject expectedGood = document<R>(reply ? Shape::Plain : Shape::PlainInput, 0);
    const auto check = [&](const Row<R> &row, const QJsonValue &value, const QJsonValue &expected, const char *what) {
        QJsonObject input = good;
        QJsonObject result = expectedGood;
        put(input, reply ? row.reply : row.host, value);
        result.insert(row.reply, expected);
        const QByteArray sent = QJsonDocument(input).toJson();
        const R record = reply ? readReply<R>(sent) : readHostText<R>(sent);
        EXPECT_EQ(text(plain(record)), text(result)) << row.reply.toStdString() << " given " << what;
    };
    for (const Row<R> &row : rows<R>()) {
        if (!reply && !row.input)
            continue;
        check(row, QJsonValue::Undefined, row.get(R{}), "nothing");
        for (const Wrong &wrong : wrongValues) {
            const QJsonValue value = parsed(wrong.value);
            if (const char *expected = expectedOf(wrong, reply ? row.kind : row.inputKind)) {
                check(row, value, parsed(expected), wrong.value);
            } else if (row.kind == Kind::Record || row.kind == Kind::Records) {
                QJsonValue empty = row.get(R{}); // an empty record, or no records
                if (row.kind == Kind::Records && value.isArray()) {
                    R one; // the field's own way to an empty element
                    row.set(one, QJsonArray{QJsonObject{}});
                    QJsonArray elements;
                    for (int i = 0; i < value.toArray().size(); ++i)
                        elements.append(row.get(one).toArray().first());
                    empty = elements;
                }
                check(row, value, empty, wrong.value);
            } else {
                QJsonObject input = good;
                put(input, row.reply, value);
                QJsonObject rest = plain(readReply<R>(QJsonDocument(input).toJson()));
                rest.insert(row.reply, expectedGood.value(row.reply));
                EXPECT_EQ(text(rest), text(expectedGood)) << row.reply.toStdString() << " given " << wrong.value;
            }
        }
    }
    for (const char *noObject : {"", "not JSON", "{", "[]", "[{}]", "7", "null", R"({"jobId": 1e999})"}) {
        const R record = reply ? readReply<R>(noObject) : readHostText<R>(noObject);
        EXPECT_EQ(text(plain(record)), text(plain(R{}))) << noObject;
    }
}

template <class R> struct ReplyForm : testing::Test {
};
using ReplyRecords =
    testing::Types<CloudFile, ItemTag, UserDetails, AccountAccess, AccountDetails, AccountTransaction, AccountBalance,
                   HpcDetails, JobStatusEntry, SimulationStatusEntry, SimulationDetails, JobDetails, SimulationProgress,
                   JobProgress, SimulationAbortState>;
TYPED_TEST_SUITE(ReplyForm, ReplyRecords);

TYPED_TEST(ReplyForm, ReadsEveryFieldFromItsKey)
{
    for (int seed = 0; seed < 4; ++seed) {
        const QByteArray body = QJsonDocument(document<TypeParam>(Shape::Reply, seed)).toJson(QJsonDocument::Compact);
        EXPECT_EQ(text(plain(readReply<TypeParam>(body))), text(document<TypeParam>(Shape::Plain, seed)));
    }
}

TYPED_TEST(ReplyForm, KeepsEveryElementOfAnArrayInOrder)
{
    const QJsonObject first = document<TypeParam>(Shape::Reply, 1);
    const QJsonObject last = document<TypeParam>(Shape::Reply, 2);
    const QJsonArray array{first, 7, QJsonValue::Null, QStringLiteral("x"), QJsonArray{first}, last};
    const auto records = readReplyList<TypeParam>(QJsonDocument(array).toJson());
    ASSERT_EQ(records.size(), 6U);
    int index = 0;
    for (const TypeParam &record : records) {
        const QJsonObject expected = index == 0   ? document<TypeParam>(Shape::Plain, 1)
                                     : index == 5 ? document<TypeParam>(Shape::Plain, 2)
                                                  : plain(TypeParam{});
        EXPECT_EQ(text(plain(record)), text(expected)) << index;
        ++index;
    }
    for (const char *noArray : {"", "{}", "nonsense", "[1, 2", "null"})
        EXPECT_TRUE(readReplyList<TypeParam>(QByteArray(noArray)).empty()) << noArray;
}

TYPED_TEST(ReplyForm, ReadsWrongValuesWithoutFailing) { readsWrongValues<TypeParam>(Form::Reply); }

template <class R> struct HostForm : testing::Test {
};
using HostRecords = testing::Types<ApiError, CloudFile, FileDownloadDetails, FileUploadDetails, ItemTag, UserDetails,
                                   AccountAccess, AccountDetails, JobStatusEntry, SimulationStatusEntry,
                                   SimulationDetails, JobDetails, SimulationAbortState>;
TYPED_TEST_SUITE(HostForm, HostRecords);

TYPED_TEST(HostForm, WritesEveryFieldUnderItsKey)
{
    EXPECT_EQ(QJsonDocument::fromJson(QByteArray::fromStdString(hostText(TypeParam{}))).object().size(),
              static_cast<int>(rows<TypeParam>().size()));
    for (int seed = 0; seed < 4; ++seed) {
        const auto record = filled<TypeParam>(document<TypeParam>(Shape::Plain, seed));
        EXPECT_EQ(hostText(record), text(document<TypeParam>(Shape::Host, seed)));
    }
}

template <class R> struct HostInput : testing::Test {
};
using InputRecords = testing::Types<FileDownloadDetails, FileUploadDetails, ItemTag, CloudFile>;
TYPED_TEST_SUITE(HostInput, InputRecords);

TYPED_TEST(HostInput, ReadsItsFieldsAndNoOthers)
{
    for (int seed = 0; seed < 4; ++seed) {
        const QByteArray sent = QJsonDocument(document<TypeParam>(Shape::Input, seed)).toJson();
        EXPECT_EQ(text(plain(readHostText<TypeParam>(sent))), text(document<TypeParam>(Shape::PlainInput, seed)));
    }
}

TYPED_TEST(HostInput, ReadsWrongValuesWithoutFailing) { readsWrongValues<TypeParam>(Form::HostInput); }

template <class R> void checkWrapper(const char *key)
{
    const std::list<R> records{filled<R>(document<R>(Shape::Plain, 0)), R{}, filled<R>(document<R>(Shape::Plain, 1))};
    const QJsonArray expected{document<R>(Shape::Host, 0),
                              QJsonDocument::fromJson(QByteArray::fromStdString(hostText(R{}))).object(),
                              document<R>(Shape::Host, 1)};
    EXPECT_EQ(hostText(records), text({{QLatin1String(key), expected}}));
    EXPECT_EQ(hostText(std::list<R>{}), std::string("{\n    \"") + key + "\": [\n    ]\n}\n");
}

TEST(ListWrapper, IsAnObjectWhoseOnlyKeyNamesTheList)
{
    checkWrapper<ItemTag>("itemTagList");
    checkWrapper<JobDetails>("jobDetailsList");
    checkWrapper<CloudFile>("fileList");
    checkWrapper<AccountDetails>("accountDetailsList");
    checkWrapper<SimulationAbortState>("simulationAbortList");
}

TEST(HostText, IsIndentedWithAscendingKeysAndFlagsAsText)
{
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
    SimulationAbortState state = readReply<SimulationAbortState>(R"({"jobId":"j","simulationId":"s","status":"ok"})");
    EXPECT_EQ(hostText(state), "{\n    \"jobID\": \"j\",\n    \"simID\": \"s\",\n    \"status\": \"ok\"\n}\n");
}

TEST(HostInputForm, DiffersFromTheHostForm)
{
    EXPECT_EQ(readHostText<FileUploadDetails>(R"({"totalFileSize": 2147483647})").totalFileSize, 2147483647);
    EXPECT_EQ(readHostText<FileUploadDetails>(R"({"totalFileSize": 3000000000})").totalFileSize, 0);
    EXPECT_EQ(readHostText<FileDownloadDetails>(R"({"cloudFileDetails": {"fileSize": 2147483648}})")
                  .cloudFileDetails.fileSize,
              0);
    EXPECT_TRUE(
        readHostText<FileDownloadDetails>(R"({"cloudFileDetails": {"directory": true}})").cloudFileDetails.directory);
    FileDownloadDetails written;
    written.cloudFileDetails = {"job", "name", 7, 1600000000000, "hash", true};
    const auto back = readHostText<FileDownloadDetails>(QByteArray::fromStdString(hostText(written)));
    EXPECT_FALSE(back.cloudFileDetails.directory); // written as text, read as a flag
    EXPECT_EQ(back.cloudFileDetails.fileSize, 7);
    EXPECT_EQ(back.cloudFileDetails.fileDate, 0);
    EXPECT_EQ(back.cloudFileDetails.fileHash, "");
}

TEST(ReplyForms, KeepTimesWholeExceptAnAccountsCreation)
{
    const auto account = readReply<AccountDetails>(R"({"account": {"accountId": "a", "accountCreated": 1600000000000},
        "accountAccess": {"accountId": "b"}})");
    EXPECT_EQ(account.accountCreated, 0);
    EXPECT_EQ(account.accountId, "a");
    EXPECT_EQ(account.accountAccess.accountID, "b");
    EXPECT_EQ(readReply<AccountTransaction>(R"({"transactionDate": 1600000000000})").transactionDate, 1600000000000);
    EXPECT_EQ(readReply<CloudFile>(R"({"fileDate": 1600000000000})").fileDate, 1600000000000);
    for (const char *noAccount : {R"({"account": 5})", R"({"account": [{"accountId": "a"}]})",
                                  R"({"accountId": "a", "accountName": "outside"})"})
        EXPECT_EQ(text(plain(readReply<AccountDetails>(noAccount))), text(plain(AccountDetails{}))) << noAccount;
}

TEST(ReplyForms, CleanConsoleParameters)
{
    constexpr const char *cases[][2] = {{"-noterm -s  -x 3 ", "-x 3"},
                                        {"-noterm -s", ""},
                                        {"a -noterm -s b -noterm -s c", "a  b  c"},
                                        {"-Noterm -s -x", "-Noterm -s -x"},
                                        {"-noterm  -s -x", "-noterm  -s -x"},
                                        {"\t -x %1\n", "-x %1"},
                                        {"", ""}};
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
