#include "transport/Operations.h"

#include <cstring>

using namespace Velmora;

QJsonValue toJson(const DeleteFileDetails &file)
{
    return QJsonArray{toQt(file.jobId), toQt(file.simulationId), toQt(file.fileName)};
}

QByteArray indented(std::initializer_list<std::pair<const char *, const char *>> members)
{
    QByteArray text = "{\n";
    for (const auto &[key, value] : members)
        text += QByteArray(text.size() > 2 ? ",\n" : "") + "    \"" + key + "\": \"" + value + "\"";
    return text + "\n}\n";
}

bool holds(const QJsonValue &whole, const QJsonValue &part)
{
    if (part.isArray()) {
        const QJsonArray left = whole.toArray(), right = part.toArray();
        bool same = whole.isArray() && left.size() == right.size();
        for (int i = 0; same && i < right.size(); ++i)
            same = holds(left[i], right[i]);
        return same;
    }
    if (!part.isObject())
        return whole == part;
    const QJsonObject object = part.toObject();
    for (auto member = object.begin(); member != object.end(); ++member) {
        if (!holds(whole[member.key()], member.value()))
            return false;
    }
    return whole.isObject();
}

QByteArray tokens(int expiresIn, const QByteArray &id)
{
    return "{\"idToken\":\"" + id + "\",\"refreshToken\":\"" + refreshToken +
           "\",\"expiresIn\":" + QByteArray::number(expiresIn) + "}";
}

const Completion &TransportTest::run(const Operation &operation)
{
    Completion fresh;
    fresh.then = done.then;
    done = fresh;
    operation.call(*api, Into{&done});
    EXPECT_TRUE(wait(done)) << operation.name;
    return done;
}

void TransportTest::logIn(int expiresIn)
{
    server.next(answer(200, tokens(expiresIn)));
    run(operation("logUserIn"));
    ASSERT_TRUE(api->isUserLoggedIn());
}

int TransportTest::sent(const char *verb, const char *target) const
{
    int count = 0;
    for (const ReceivedRequest &request : server.requests())
        count += request.verb == verb && request.target == target;
    return count;
}

const Operation &operation(const char *name)
{
    for (const Operation &each : operations()) {
        if (std::strcmp(each.name, name) == 0)
            return each;
    }
    qFatal("no operation %s", name);
}

const std::vector<Operation> &operations()
{
    using Texts = std::list<std::string>;
    constexpr const char *login = "Error Authenticating Credentials";
    const QByteArray jobReply = R"({"jobId":"J1","jobName":"Fan"})";
    const QByteArray jobsReply = R"([{"jobId":"J1"},{"jobId":"J2"}])";
    const QByteArray tagBody = indented({{"itemId", "J1"}, {"tag", "fan \xC3\xBC"}, {"type", "ProjectTag"}});
    const QByteArray tagsReply = R"({"taglist":[{"tag":"fan","type":"ProjectTag"}]})";
    const QByteArray tagsBare = R"([{"tag":"fan","type":"ProjectTag"}])";
    const QByteArray filesReply = R"([{"fileName":"a/rtg/b"},{"fileName":"a/RTG/b"},{"fileName":"rtg/c"}])";
    const QByteArray someFiles = R"([[{"fileName":"a/RTG/b"},{"fileName":"rtg/c"}]])";
    static const std::vector<Operation> all = {
        {"logUserIn", "POST", "auth/login",
         indented({{"emailAddress", "ada@velmora.example"}, {"password", "s3cret-pa55"}}), login, tokens(3600),
         "[null]", [](CloudAPI &api, Into done) { api.logUserIn("ada@velmora.example", "s3cret-pa55", "", done); }},
        {"checkMFAEnabled", "POST", "auth/hasMFA", indented({{"emailAddress", "ada@velmora.example"}}), login, "true",
         "[true]", [](CloudAPI &api, Into done) { api.checkMFAEnabled("ada@velmora.example", done); }},
        {"generateNewJobID", "POST", "job/init", indented({{"accountId", "A1"}}), "Error Requesting Job ID",
         R"({"jobId":"J9"})", R"(["J9"])", [](CloudAPI &api, Into done) { api.generateNewJobID("A1", done); }},
        {"generateNewJobID with a cluster", "POST", "job/init", indented({{"accountId", "A1"}, {"hpcId", "H1"}}),
         "Error Requesting Job ID", R"({"jobId":"J9"})", R"(["J9"])",
         [](CloudAPI &api, Into done) { api.generateNewJobID("A1", "H1", done); }},
        {"generateNewJobID with an empty cluster", "POST", "job/init", indented({{"accountId", ""}}),
         "Error Requesting Job ID", R"({"jobId":9})", R"([""])",
         [](CloudAPI &api, Into done) { api.generateNewJobID("", "", done); }},
        {"submitNewJob", "POST", "job/submit", " {not JSON,\r\n\tbut sent \xC3\xBC as given", "Error Submitting Job",
         jobReply, "[" + jobReply + "]",
         [](CloudAPI &api, Into done) { api.submitNewJob(" {not JSON,\r\n\tbut sent \xC3\xBC as given", done); }},
        {"getAllJobDetails", "POST", "job/list", "", "Error Requesting Job Information", jobsReply,
         "[" + jobsReply + "]", [](CloudAPI &api, Into done) { api.getAllJobDetails(done); }},
        {"getJobDetails", "POST", "job/load", indented({{"jobId", "J1"}}), "Error Requesting Job Information", jobReply,
         "[" + jobReply + "]", [](CloudAPI &api, Into done) { api.getJobDetails("J1", done); }},
        {"getJobProgress", "POST", "job/progress", indented({{"jobId", "J1"}}), "Error Requesting Job Progress",
         R"({"jobId":"J1","simulationProgressList":[{"simulationId":"S1","progress":40}]})",
         R"([{"jobId":"J1","simulationProgressList":[{"simulationId":"S1","progress":40}]}])",
         [](CloudAPI &api, Into done) { api.getJobProgress("J1", done); }},
        {"killJob", "POST", "job/stop", indented({{"jobId", "J1"}}), "Error Aborting Job",
         R"([{"jobId":"J1","simulationId":"S1","status":"stopping"}])",
         R"([[{"jobId":"J1","simulationId":"S1","status":"stopping"}]])",
         [](CloudAPI &api, Into done) { api.killJob("J1", done); }},
        {"killSimulation", "POST", "job/simulation/stop", indented({{"jobId", "J1"}, {"simulationId", "S1"}}),
         "Error Aboting Simulation", R"({"jobId":"J1","simulationId":"S1","status":"stopping"})",
         R"([{"jobId":"J1","simulationId":"S1","status":"stopping"}])",
         [](CloudAPI &api, Into done) { api.killSimulation("J1", "S1", done); }},
        {"archiveJob", "POST", "job/archive", indented({{"jobId", "J1"}}), "Error Archiving Job", jobsReply,
         "[" + jobsReply + "]", [](CloudAPI &api, Into done) { api.archiveJob("J1", done); }},
        {"getAccountList", "POST", "account/list", "", "Error Retrieving Account List",
         R"([{"account":{"accountId":"A1"},"accountAccess":{"hasMFA":true}}])",
         R"([[{"accountId":"A1","accountAccess":{"hasMFA":true}}]])",
         [](CloudAPI &api, Into done) { api.getAccountList(done); }},
        {"getAccountBalance", "POST", "account/balance", indented({{"accountId", "A1"}}),
         "Error Requesting Account Balance", R"({"accountId":"A1","coreHoursAvailable":2.5})",
         R"([{"accountId":"A1","coreHoursAvailable":2.5}])",
         [](CloudAPI &api, Into done) { api.getAccountBalance("A1", done); }},
        {"getHpcList", "POST", "account/hpc/list", indented({{"accountId", "A1"}}), "Unknown Error",
         R"([{"hpcId":"H1","hpcActive":true}])", R"([[{"hpcId":"H1","hpcActive":true}]])",
         [](CloudAPI &api, Into done) { api.getHpcList("A1", done); }},
        {"getHpcPreferenceList", "POST", "account/hpc/preference", indented({{"accountId", "A1"}}), "Unknown Error",
         R"([{"hpcId":"H1"}])", R"([[{"hpcId":"H1"}]])",
         [](CloudAPI &api, Into done) { api.getHpcPreferenceList("A1", done); }},
        {"getCurrentUserDetails", "POST", "user/details", "", "Error Accessing User Details",
         R"({"userId":"U1","lastName":"Byron"})", R"([{"userId":"U1","lastName":"Byron"}])",
         [](CloudAPI &api, Into done) { api.getCurrentUserDetails(done); }},
        {"modifyCurrentUserDetails", "POST", "user/modify",
         indented({{"companyName", ""}, {"firstName", "Ada"}, {"lastName", "Byron"}}), "Error Modifying User Details",
         R"({"userId":"U1"})", R"([{"userId":"U1"}])",
         [](CloudAPI &api, Into done) { api.modifyCurrentUserDetails("Byron", "Ada", "", done); }},
        {"sendUserEvent", "POST", "user/event/add",
         indented({{"eventSource", "viewer"}, {"eventType", "open"}, {"eventValue", "J1"}}), "Error Logging User Event",
         "ignored", "[null]", [](CloudAPI &api, Into done) { api.sendUserEvent("open", "viewer", "J1", done); }},
        {"sendUserEvent without a value", "POST", "user/event/add",
         indented({{"eventSource", "viewer"}, {"eventType", "open"}}), "Error Logging User Event", "", "[null]",
         [](CloudAPI &api, Into done) { api.sendUserEvent("open", "viewer", "", done); }},
        {"tagJob", "POST", "tag/job", tagBody, "Error Editing Job Tags", tagsReply, "[" + tagsBare + "]",
         [](CloudAPI &api, Into done) { api.tagJob("J1", "fan \xC3\xBC", done); }},
        {"untagJob", "DELETE", "tag/job", tagBody, "Error Editing Job Tags", tagsBare, "[" + tagsBare + "]",
         [](CloudAPI &api, Into done) { api.untagJob("J1", "fan \xC3\xBC", done); }},
        {"getJobTags", "POST", "tag/list", indented({{"itemId", "J1"}}), "Error Retrieving Tag List for Job",
         R"({"tags":[{}]})", "[[]]", [](CloudAPI &api, Into done) { api.getJobTags("J1", done); }},
        {"getAllAccountTags", "POST", "tag/list/account", indented({{"accountId", "A1"}}),
         "Error Retrieving Tag List for Account", tagsReply, "[" + tagsBare + "]",
         [](CloudAPI &api, Into done) { api.getAllAccountTags("A1", done); }},
        {"searchUserTags", "POST", "tag/search/job/user",
         "{\n    \"tags\": [\n        {\n            \"tag\": \"b\",\n            \"type\": \"ProjectTag\"\n        "
         "},\n"
         "        {\n            \"tag\": \"a\",\n            \"type\": \"ProjectTag\"\n        }\n    ]\n}\n",
         "Error Searching for Tagged Jobs", jobsReply, "[" + jobsReply + "]",
         [](CloudAPI &api, Into done) {
             api.searchUserTags(std::list<ItemTag>{{"b", "Other"}, {"a", ""}}, done);
         }},
        {"searchUserTags for nothing", "POST", "tag/search/job/user", "{\n    \"tags\": [\n    ]\n}\n",
         "Error Searching for Tagged Jobs", "[]", "[[]]",
         [](CloudAPI &api, Into done) { api.searchUserTags(Texts{}, done); }},
        {"getUsersFileList", "GET", "job/files/list", "", "Error Retrieving File List for Job", filesReply,
         "[" + filesReply + "]", [](CloudAPI &api, Into done) { api.getUsersFileList(true, done); }},
        {"getJobFileList", "GET", "job/files/list/J1%252", "", "Error Retrieving File List for Job", filesReply,
         someFiles, [](CloudAPI &api, Into done) { api.getJobFileList("J1%2", false, done); }},
        {"getSimulationFileList", "GET", "job/files/list/%251/S%201", "", "Error Retrieving File List for Job",
         filesReply, someFiles, [](CloudAPI &api, Into done) { api.getSimulationFileList("%1", "S 1", false, done); }},
        {"deleteFile", "DELETE", "job/files/J1/out/a%20b.txt", "", "Error Transferring Files", "",
         R"([["J1","","out/a b.txt"]])",
         [](CloudAPI &api, Into done) {
             api.deleteFile({"J1", "", "out/a b.txt"}, done);
         }},
        {"deleteFile of a simulation", "DELETE", "job/files/J1/S1/a.txt", "", "Error Transferring Files", "gone",
         R"([["J1","S1","a.txt"]])",
         [](CloudAPI &api, Into done) {
             api.deleteFile({"J1", "S1", "a.txt"}, done);
         }},
    };
    return all;
}
