#include "portal/http/Text.h"
#include "portal/json/Body.h"
#include "portal/service/Records.h"
#include "portal/service/Service.h"

#include <algorithm>
#include <set>

namespace VelmoraPortal {
namespace {

constexpr std::size_t maxJobs = 10000;
constexpr std::size_t maxReservations = 10000;
constexpr std::size_t maxTransactions = 20;
constexpr std::size_t maxSimulations = 1000;
const std::string singleType = "Cloud Configuration - Single Simulation";
const std::string sweepType = "Cloud Configuration - Simulation Sweep";

std::string statusText(const std::string &status) { return "Job status is " + status; }

std::string socketText(const Job &job, const Simulation &simulation, int progress, const std::string &status)
{
    Json text = {{"jobId", job.id}, {"simulationId", simulation.id}, {"progress", progress}, {"status", status}};
    if (!simulation.problem.empty())
        text["message"] = simulation.problem;
    return dump(text);
}

std::string socketText(const Job &job, const std::string &status)
{
    return dump({{"jobId", job.id}, {"status", status}, {"message", statusText(status)}});
}

Simulation *findSimulation(Job &job, const std::string &id)
{
    for (Simulation &simulation : job.simulations)
        if (simulation.id == id)
            return &simulation;
    return nullptr;
}

Json abortState(const Job &job, const Simulation &simulation)
{
    return {{"jobId", job.id}, {"simulationId", simulation.id}, {"status", simulation.history.back().status}};
}

Tag tagOf(Body &body) { return {body.text("tag"), body.text("type", std::set<std::string>{"ProjectTag"})}; }

Json listOf(const std::vector<Tag> &tags)
{
    Json list = Json::array();
    for (const Tag &tag : tags)
        list.push_back(toJson(tag));
    return list;
}

/// Reads and checks a submission; the job has no schedule yet.
Job submission(const Json &object)
{
    Body body(object);
    Job job;
    job.id = body.text("jobId");
    job.accountId = body.text("accountId");
    job.name = body.text("jobName");
    job.mainFile = body.text("mainFile");
    job.dockerTag = body.text("dockerTag", true);
    job.dependencies = body.texts("fileDependencies");
    job.aliases = body.texts("fileAliases");
    job.operation = body.text("operation", {"mpi", "simulation", "review", "build"});
    const Json &simulations = body.array("simulations");
    if (simulations.empty() || simulations.size() > maxSimulations)
        throw Refusal(400, "\"simulations\" must hold from 1 to " + std::to_string(maxSimulations) + " simulations");
    for (const Json &element : simulations) {
        const std::string number = std::to_string(job.simulations.size());
        Body one(element, "simulations[" + number + "]");
        Simulation simulation;
        simulation.id = "sim-" + std::to_string(job.simulations.size() + 1);
        simulation.consoleParameters = one.text("consoleParameters", true);
        one.end();
        job.simulations.push_back(std::move(simulation));
    }
    job.type = body.text("jobType", {job.simulations.size() < 2 ? singleType : sweepType});
    job.precision = body.text("precision", {"single", "double"});
    job.cores = static_cast<int>(body.integer("coresRequired", 1, 128));
    job.coreHourEstimate = body.positive("coreHourEstimate");
    job.ram = static_cast<int>(body.integer("ramEstimate", 1, 1800 * 1024 - 1));
    const int parts = job.operation == "mpi" ? job.cores : 1;
    job.parts = static_cast<int>(body.integer("numberOfParts", parts, parts));
    job.application = body.text("application");
    body.end();
    if (!job.aliases.empty() && job.aliases.size() != job.dependencies.size())
        throw Refusal(400, "\"fileAliases\" must be empty or hold one alias for each of \"fileDependencies\"");
    return job;
}

} // namespace

Job *Service::findJob(const std::string &id)
{
    for (Job &candidate : m_state.jobs)
        if (candidate.id == id)
            return &candidate;
    return nullptr;
}

Job &Service::job(const std::string &id, const User &user)
{
    const auto reserved = m_state.reservations.find(id);
    Job *found = findJob(id);
    if (!found && reserved == m_state.reservations.end())
        throw Refusal(404, "There is no job \"" + id + "\"");
    if ((found ? found->email : reserved->second.email) != user.email)
        throw Refusal(403, "The job \"" + id + "\" belongs to another user");
    if (!found)
        throw Refusal(404, "The job \"" + id + "\" has not been submitted yet");
    return *found;
}

void Service::requireOwned(const std::string &id, const User &user)
{
    const auto reserved = m_state.reservations.find(id);
    if (reserved == m_state.reservations.end() || reserved->second.email != user.email)
        job(id, user);
}

Job &Service::onlyJob(Call &call, const char *key) { return job(onlyText(call.body, key), *call.user); }

Json Service::jobsOf(const User &user) const
{
    Json list = Json::array();
    for (const Job &candidate : m_state.jobs)
        if (candidate.email == user.email)
            list.push_back(toJson(candidate));
    return list;
}

void Service::advance()
{
    takeResults();
    const Milliseconds time = now();
    for (Job &candidate : m_state.jobs) {
        if (!isActive(candidate))
            continue;
        notify(candidate, VelmoraPortal::advance(candidate, time));
        for (Simulation &simulation : candidate.simulations)
            if (!simulation.asked && simulation.history.back().status == Status::running)
                solve(candidate, simulation);
    }
}

void Service::notify(const Job &job, const std::vector<JobEvent> &events)
{
    for (const JobEvent &event : events) {
        if (event.simulation) {
            m_listener.notify(job.id, socketText(job, *event.simulation, event.progress, event.status));
            continue;
        }
        m_listener.notify(job.id, socketText(job, event.status));
        if (!isActive(job)) {
            charge(job);
            m_listener.finish(job.id, statusText(event.status));
        }
    }
}

void Service::charge(const Job &job)
{
    double amount = 0;
    for (const Simulation &simulation : job.simulations)
        amount += job.coreHourEstimate * simulation.progress / 100;
    Account &payer = m_state.accounts.at(job.accountId);
    payer.coreHours -= amount;
    payer.transactions.push_front({"txn-" + randomHex(4), job.id, "JOB", "Core hours of job " + job.id, job.email,
                                   -amount, job.history.back().date});
    if (payer.transactions.size() > maxTransactions)
        payer.transactions.pop_back();
}

std::vector<std::string> Service::snapshot(const std::string &jobId) const
{
    std::vector<std::string> texts;
    for (const Job &candidate : m_state.jobs) {
        if (candidate.id != jobId)
            continue;
        for (const Simulation &simulation : candidate.simulations)
            texts.push_back(socketText(candidate, simulation, simulation.progress, simulation.history.back().status));
        const std::string end = outcome(candidate);
        texts.push_back(socketText(candidate, end.empty() ? candidate.status() : end));
    }
    return texts;
}

std::string Service::endReason(const std::string &jobId) const
{
    for (const Job &candidate : m_state.jobs)
        if (candidate.id == jobId && !isActive(candidate))
            return statusText(outcome(candidate));
    return {};
}

Json Service::jobInit(Call &call)
{
    Body body(call.body);
    const std::string accountId = body.text("accountId");
    const std::string clusterId = body.has("hpcId") ? body.text("hpcId") : "";
    body.end();
    account(accountId, *call.user);
    if (!clusterId.empty()) {
        const auto &clusters = m_state.clusters;
        const auto cluster = std::find_if(clusters.begin(), clusters.end(),
                                          [&](const Cluster &candidate) { return candidate.id == clusterId; });
        if (cluster == clusters.end())
            throw Refusal(404, "There is no cluster \"" + clusterId + "\"");
        if (!cluster->active)
            throw Refusal(409, "The cluster \"" + clusterId + "\" accepts no jobs");
    }
    if (m_state.reservations.size() >= maxReservations)
        throw Refusal(429, "Too many job ids were requested and not used");
    const std::string id = "job-" + randomHex(4);
    m_state.reservations[id] = {call.user->email, accountId, clusterId};
    return {{"jobId", id}};
}

Json Service::jobSubmit(Call &call)
{
    Job fresh = submission(call.body);
    fresh.email = call.user->email;
    if (findJob(fresh.id)) {
        job(fresh.id, *call.user);
        throw Refusal(409, "The job \"" + fresh.id + "\" was submitted before");
    }
    const auto reserved = m_state.reservations.find(fresh.id);
    if (reserved == m_state.reservations.end())
        throw Refusal(404, "There is no job \"" + fresh.id + "\": ask for a job id first");
    if (reserved->second.email != fresh.email)
        throw Refusal(403, "The job \"" + fresh.id + "\" belongs to another user");
    account(fresh.accountId, *call.user);
    if (m_state.jobs.size() >= maxJobs)
        throw Refusal(503, "The portal holds as many jobs as it can");
    plan(fresh, now(), m_jobDuration.count());
    for (Simulation &simulation : fresh.simulations)
        simulation.asked = simulation.solved = false;
    m_state.reservations.erase(reserved);
    m_state.jobs.push_back(std::move(fresh));
    const Job &kept = m_state.jobs.back();
    m_listener.notify(kept.id, socketText(kept, kept.status()));
    return toJson(kept);
}

Json Service::jobLoad(Call &call) { return toJson(onlyJob(call)); }

Json Service::jobList(Call &call) { return jobsOf(*call.user); }

Json Service::jobProgress(Call &call) { return progressJson(onlyJob(call)); }

Json Service::jobStop(Call &call)
{
    Job &stopped = onlyJob(call);
    std::vector<JobEvent> events;
    stop(stopped, now(), events);
    notify(stopped, events);
    Json list = Json::array();
    for (const Simulation &simulation : stopped.simulations)
        list.push_back(abortState(stopped, simulation));
    return list;
}

Json Service::simulationStop(Call &call)
{
    Body body(call.body);
    const std::string id = body.text("jobId");
    const std::string simulationId = body.text("simulationId");
    body.end();
    Job &owner = job(id, *call.user);
    Simulation *simulation = findSimulation(owner, simulationId);
    if (!simulation)
        throw Refusal(404, "The job \"" + id + "\" has no simulation \"" + simulationId + "\"");
    std::vector<JobEvent> events;
    stop(owner, *simulation, now(), events);
    notify(owner, events);
    return abortState(owner, *simulation);
}

Json Service::jobArchive(Call &call)
{
    Job &archived = onlyJob(call);
    if (isActive(archived))
        throw Refusal(409, "The job \"" + archived.id + "\" is still at work: stop it first");
    if (archived.status() != Status::archived)
        archived.history.push_back({Status::archived, now()});
    return jobsOf(*call.user);
}

Json Service::tagAdd(Call &call)
{
    Body body(call.body);
    const std::string id = body.text("itemId");
    const Tag tag = tagOf(body);
    body.end();
    auto &tags = job(id, *call.user).tags;
    if (std::find(tags.begin(), tags.end(), tag) == tags.end()) {
        if (tags.size() >= 100)
            throw Refusal(409, "The job \"" + id + "\" has as many tags as it can");
        tags.push_back(tag);
    }
    return {{"taglist", listOf(tags)}};
}

Json Service::tagRemove(Call &call)
{
    Body body(call.body);
    const std::string id = body.text("itemId");
    const Tag tag = tagOf(body);
    body.end();
    auto &tags = job(id, *call.user).tags;
    const auto found = std::find(tags.begin(), tags.end(), tag);
    if (found == tags.end())
        throw Refusal(404, "The job \"" + id + "\" has no tag \"" + tag.tag + "\"");
    tags.erase(found);
    return {{"taglist", listOf(tags)}};
}

Json Service::tagList(Call &call) { return {{"taglist", listOf(onlyJob(call, "itemId").tags)}}; }

Json Service::tagListAccount(Call &call)
{
    const std::string id = onlyText(call.body, "accountId");
    account(id, *call.user);
    std::set<Tag> tags;
    for (const Job &candidate : m_state.jobs)
        if (candidate.accountId == id)
            tags.insert(candidate.tags.begin(), candidate.tags.end());
    return listOf({tags.begin(), tags.end()});
}

Json Service::tagSearch(Call &call)
{
    Body body(call.body);
    std::vector<Tag> wanted;
    for (const Json &element : body.array("tags")) {
        Body one(element, "tags[" + std::to_string(wanted.size()) + "]");
        wanted.push_back(tagOf(one));
        one.end();
    }
    body.end();
    Json list = Json::array();
    for (const Job &candidate : m_state.jobs) {
        const auto carried = [&](const Tag &tag) {
            return std::find(candidate.tags.begin(), candidate.tags.end(), tag) != candidate.tags.end();
        };
        if (candidate.email == call.user->email && !wanted.empty() &&
            std::all_of(wanted.begin(), wanted.end(), carried))
            list.push_back(toJson(candidate));
    }
    return list;
}

} // namespace VelmoraPortal
