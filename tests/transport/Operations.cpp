#include "transport/Operations.h"

QByteArray indented(std::initializer_list<std::pair<const char *, const char *>> members)
{
    QByteArray text = "{\n";
    for (const auto &[key, value] : members)
        text += QByteArray(text.size() > 2 ? ",\n" : "") + "    \"" + key + "\": \"" + value + "\"";
    return text + "\n}\n";
}

QJsonValue parsed(const QByteArray &value) { return QJsonDocument::fromJson('[' + value + ']').array().first(); }

bool holds(const QJsonValue &whole, const QJsonValue &part)
{
    if (!part.isObject() && !part.isArray())
        return whole == part;
    bool same = whole.type() == part.type() && whole.toArray().size() == part.toArray().size();
    for (int i = 0; same && i < part.toArray().size(); ++i)
        same = holds(whole[i], part[i]);
    const QJsonObject object = part.toObject();
    for (auto member = object.begin(); same && member != object.end(); ++member)
        same = holds(whole[member.key()], member.value());
    return same;
}

QByteArray tokens(int expiresIn, const QByteArray &id)
{
    return "{\"idToken\":\"" + id + "\",\"refreshToken\":\"" + refreshToken +
           "\",\"expiresIn\":" + QByteArray::number(expiresIn) + "}";
}

void TransportTest::TearDown()
{
    for (const QString &warning : log.warnings())
        EXPECT_TRUE(warning.endsWith(QLatin1String("Cannot call seek on a sequential device")))
            << warning.toStdString();
}

void TransportTest::start(const char *name, const std::optional<Answer> &scripted)
{
    if (scripted)
        server.next(*scripted);
    operation(name).call(*api, Into{&done});
}

void TransportTest::run(const char *name, const std::optional<Answer> &scripted)
{
    start(name, scripted);
    EXPECT_TRUE(wait(done)) << name;
}

void TransportTest::logIn(int expiresIn)
{
    run("logUserIn", answer(200, tokens(expiresIn)));
    ASSERT_TRUE(api->isUserLoggedIn());
}

int TransportTest::sent(const QByteArray &verb, const QByteArray &target) const
{
    return int(std::count_if(server.requests().begin(), server.requests().end(),
                             [&](const auto &each) { return each.verb == verb && each.target == target; }));
}

const Operation &operation(const char *name)
{
    return *std::find_if(operations().begin(), operations().end(),
                         [=](const Operation &each) { return QByteArray(each.name) == name; });
}

/// The member function with these arguments and a completion behind them.
template <class... Parameters, class... Arguments>
static auto call(void (CloudAPI::*function)(Parameters...), Arguments... arguments)
{
    return [=](CloudAPI &api, Into done) { (api.*function)(arguments..., done); };
}

const std::vector<Operation> &operations()
{
    using C = CloudAPI;
    constexpr const char *login = "Error Authenticating Credentials", *initTitle = "Error Requesting Job ID",
                         *jobTitle = "Error Requesting Job Information", *eventTitle = "Error Logging User Event",
                         *listTitle = "Error Retrieving File List for Job", *tagTitle = "Error Editing Job Tags",
                         *searchTitle = "Error Searching for Tagged Jobs", *deleteTitle = "Error Transferring Files";
    const char *const text = " {not JSON,\r\n\tbut sent \xC3\xBC as given";
    const QByteArray job = indented({{"jobId", "J1"}}), account = indented({{"accountId", "A1"}});
    const char *const mail = "ada@velmora.example", *const password = "s3cret-pa55";
    const QByteArray jobReply = R"({"jobId":"J1","jobName":"Fan"})", jobsReply = R"([{"jobId":"J1"},{"jobId":"J2"}])",
                     stopReply = R"({"jobId":"J1","simulationId":"S1","status":"stopping"})";
    const QByteArray tagBody = indented({{"itemId", "J1"}, {"tag", "fan \xC3\xBC"}, {"type", "ProjectTag"}});
    const QByteArray tagsBare = R"([{"tag":"fan","type":"ProjectTag"}])", tagsReply = "{\"taglist\":" + tagsBare + "}";
    const QByteArray filesReply = R"([{"fileName":"a/rtg/b"},{"fileName":"a/RTG/b"},{"fileName":"rtg/c"}])";
    const QByteArray someFiles = R"([{"fileName":"a/RTG/b"},{"fileName":"rtg/c"}])";
    const QByteArray tag = ",\n            \"type\": \"ProjectTag\"\n        }",
                     tagOpen = "        {\n            \"tag\": ";
    const QByteArray searchBody =
        "{\n    \"tags\": [\n" + tagOpen + "\"b\"" + tag + ",\n" + tagOpen + "\"a\"" + tag + "\n    ]\n}\n";
    static const std::vector<Operation> all = {
        {"logUserIn", "POST", "auth/login", indented({{"emailAddress", mail}, {"password", password}}), login,
         tokens(3600), call(&C::logUserIn, mail, password, ""), "null"},
        {"resumeSession", "POST", "auth/refresh", indented({{"refreshToken", refreshToken}}), login, tokens(3600),
         call(&C::resumeSession, refreshToken), "null"},
        {"checkMFAEnabled", "POST", "auth/hasMFA", indented({{"emailAddress", mail}}), login, "true",
         call(&C::checkMFAEnabled, mail)},
        {"generateNewJobID", "POST", "job/init", account, initTitle, R"({"jobId":"J9"})",
         [](C &api, Into done) { api.generateNewJobID("A1", done); }, "\"J9\""},
        {"generateNewJobID with a cluster", "POST", "job/init", indented({{"accountId", "A1"}, {"hpcId", "H1"}}),
         initTitle, R"({"jobId":"J9"})", [](C &api, Into done) { api.generateNewJobID("A1", "H1", done); }, "\"J9\""},
        {"generateNewJobID with an empty cluster", "POST", "job/init", indented({{"accountId", ""}}), initTitle,
         R"({"jobId":9})", [](C &api, Into done) { api.generateNewJobID("", "", done); }, "\"\""},
        {"submitNewJob", "POST", "job/submit", text, "Error Submitting Job", jobReply,
         [text](C &api, Into done) { api.submitNewJob(text, done); }},
        {"getAllJobDetails", "POST", "job/list", "", jobTitle, jobsReply, call(&C::getAllJobDetails)},
        {"getJobDetails", "POST", "job/load", job, jobTitle, jobReply, call(&C::getJobDetails, "J1")},
        {"getJobProgress", "POST", "job/progress", job, "Error Requesting Job Progress",
         R"({"jobId":"J1","simulationProgressList":[{"simulationId":"S1","progress":40}]})",
         call(&C::getJobProgress, "J1")},
        {"killJob", "POST", "job/stop", job, "Error Aborting Job", '[' + stopReply + ']', call(&C::killJob, "J1")},
        {"killSimulation", "POST", "job/simulation/stop", indented({{"jobId", "J1"}, {"simulationId", "S1"}}),
         "Error Aboting Simulation", stopReply, call(&C::killSimulation, "J1", "S1")},
        {"archiveJob", "POST", "job/archive", job, "Error Archiving Job", jobsReply, call(&C::archiveJob, "J1")},
        {"getAccountList", "POST", "account/list", "", "Error Retrieving Account List",
         R"([{"account":{"accountId":"A1"},"accountAccess":{"hasMFA":true}}])", call(&C::getAccountList),
         R"([{"accountId":"A1","accountAccess":{"hasMFA":true}}])"},
        {"getAccountBalance", "POST", "account/balance", account, "Error Requesting Account Balance",
         R"({"accountId":"A1","coreHoursAvailable":2.5})", call(&C::getAccountBalance, "A1")},
        {"getHpcList", "POST", "account/hpc/list", account, "Unknown Error", R"([{"hpcId":"H1","hpcActive":true}])",
         call(&C::getHpcList, "A1")},
        {"getHpcPreferenceList", "POST", "account/hpc/preference", account, "Unknown Error", R"([{"hpcId":"H1"}])",
         call(&C::getHpcPreferenceList, "A1")},
        {"getCurrentUserDetails", "POST", "user/details", "", "Error Accessing User Details",
         R"({"userId":"U1","lastName":"Byron"})", call(&C::getCurrentUserDetails)},
        {"modifyCurrentUserDetails", "POST", "user/modify",
         indented({{"companyName", ""}, {"firstName", "Ada"}, {"lastName", "Byron"}}), "Error Modifying User Details",
         R"({"userId":"U1"})", call(&C::modifyCurrentUserDetails, "Byron", "Ada", "")},
        {"sendUserEvent", "POST", "user/event/add",
         indented({{"eventSource", "viewer"}, {"eventType", "open"}, {"eventValue", "J1"}}), eventTitle, "ignored",
         call(&C::sendUserEvent, "open", "viewer", "J1"), "null"},
        {"sendUserEvent without a value", "POST", "user/event/add",
         indented({{"eventSource", "viewer"}, {"eventType", "open"}}), eventTitle, "",
         call(&C::sendUserEvent, "open", "viewer", ""), "null"},
        {"tagJob", "POST", "tag/job", tagBody, tagTitle, tagsReply, call(&C::tagJob, "J1", "fan \xC3\xBC"), tagsBare},
        {"untagJob", "DELETE", "tag/job", tagBody, tagTitle, tagsBare, call(&C::untagJob, "J1", "fan \xC3\xBC")},
        {"getJobTags", "POST", "tag/list", indented({{"itemId", "J1"}}), "Error Retrieving Tag List for Job",
         R"({"tags":[{}]})", call(&C::getJobTags, "J1"), "[]"},
        {"getAllAccountTags", "POST", "tag/list/account", account, "Error Retrieving Tag List for Account", tagsReply,
         call(&C::getAllAccountTags, "A1"), tagsBare},
        {"searchUserTags", "POST", "tag/search/job/user", searchBody, searchTitle, jobsReply,
         [](C &api, Into done) {
             api.searchUserTags(std::list<ItemTag>{{"b", "Other"}, {"a", ""}}, done);
         }},
        {"searchUserTags for nothing", "POST", "tag/search/job/user", "{\n    \"tags\": [\n    ]\n}\n", searchTitle,
         "[]", [](C &api, Into done) { api.searchUserTags(std::list<std::string>{}, done); }},
        {"getUsersFileList", "GET", "job/files/list", "", listTitle, filesReply, call(&C::getUsersFileList, true)},
        {"getJobFileList", "GET", "job/files/list/J1%252", "", listTitle, filesReply,
         call(&C::getJobFileList, "J1%2", false), someFiles},
        {"getSimulationFileList", "GET", "job/files/list/%251/S%201", "", listTitle, filesReply,
         call(&C::getSimulationFileList, "%1", "S 1", false), someFiles},
        {"deleteFile", "DELETE", "job/files/J1/out/a%20b.txt", "", deleteTitle, "",
         call(&C::deleteFile, DeleteFileDetails{"J1", "", "out/a b.txt"}), R"(["J1","","out/a b.txt"])"},
        {"deleteFile of an odd name", "DELETE", "job/files/J1/S%23/50%25%20%23%C3%A9%3F,(1)", "", deleteTitle, "",
         call(&C::deleteFile, DeleteFileDetails{"J1", "S#", "50% #\u00e9?,(1)"}),
         "[\"J1\",\"S#\",\"50% #\u00e9?,(1)\"]"},
        {"deleteFile of a simulation", "DELETE", "job/files/J1/S1/a.txt", "", deleteTitle, "gone",
         call(&C::deleteFile, DeleteFileDetails{"J1", "S1", "a.txt"}), R"(["J1","S1","a.txt"])"},
    };
    return all;
}
