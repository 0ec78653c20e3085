#include "portal/http/Text.h"
#include "portal/json/Body.h"
#include "portal/service/Records.h"
#include "portal/service/Service.h"

#include <algorithm>

namespace VelmoraPortal {
namespace {

/// The host name that the client used; the addresses use it too.
std::string hostOf(const HttpRequest &request)
{
    const std::string *host = findHeader(request.headers, "Host");
    const char *const allowed = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789.-:[]";
    if (!host || host->empty() || host->find_first_not_of(allowed) != std::string::npos)
        throw Refusal(400, "The Host header is missing or not valid");
    return *host;
}

std::string baseName(const std::string &path) { return path.substr(path.find_last_of("/\\") + 1); }

bool contains(const std::vector<StoredFile> &files, const std::string &name)
{
    return std::any_of(files.begin(), files.end(), [&](const StoredFile &file) { return file.name == name; });
}

} // namespace

Json Service::jobKey(Call &call)
{
    const std::string id = onlyText(call.body, "jobId");
    requireOwned(id, *call.user);
    const Key &key = m_store.key(id);
    return {{"key", {{"plaintextKey", base64(std::string(key.begin(), key.end()))}}}};
}

Json Service::uploadUrl(Call &call)
{
    requireOwned(call.tail[0], *call.user);
    return m_addresses.upload(hostOf(call.request), call.tail[0], m_storage);
}

Json Service::filesList(Call &call)
{
    const std::string host = hostOf(call.request);
    Json list = Json::array();
    std::string prefix;
    if (call.tail.size() == 2) {
        const auto &simulations = job(call.tail[0], *call.user).simulations;
        if (std::none_of(simulations.begin(), simulations.end(),
                         [&](const Simulation &candidate) { return candidate.id == call.tail[1]; }))
            throw Refusal(404, "The job \"" + call.tail[0] + "\" has no simulation \"" + call.tail[1] + "\"");
        prefix = call.tail[1] + '/';
    }
    const auto add = [&](const std::string &jobId) {
        for (const auto &[name, file] : m_store.files(jobId)) {
            if (name.compare(0, prefix.size(), prefix) != 0)
                continue;
            list.push_back(toJson(jobId, file));
            list.back()["fileSize"] = Addresses::downloadSize(file, m_storage);
            list.back()["downloadRequest"] = m_addresses.pieces(host, jobId, file, m_storage);
        }
    };
    if (!call.tail.empty()) {
        requireOwned(call.tail[0], *call.user);
        add(call.tail[0]);
        return list;
    }
    for (const Job &candidate : m_state.jobs)
        if (candidate.email == call.user->email)
            add(candidate.id);
    for (const auto &[id, reservation] : m_state.reservations)
        if (reservation.email == call.user->email)
            add(id);
    return list;
}

Json Service::filesDelete(Call &call)
{
    requireOwned(call.tail[0], *call.user);
    std::string name;
    for (std::size_t i = 1; i < call.tail.size(); ++i)
        name += (i > 1 ? "/" : "") + call.tail[i];
    if (!m_store.remove(call.tail[0], name))
        throw Refusal(404, "The job \"" + call.tail[0] + "\" has no file \"" + name + "\"");
    return Json::object();
}

void Service::solve(const Job &job, Simulation &simulation)
{
    simulation.asked = true;
    SolverTask task;
    task.jobId = job.id;
    task.simulationId = simulation.id;
    task.consoleParameters = simulation.consoleParameters;
    task.key = m_store.key(job.id);
    std::vector<std::string> wanted = {job.mainFile};
    wanted.insert(wanted.end(), job.dependencies.begin(), job.dependencies.end());
    for (const std::string &path : wanted) {
        const StoredFile *file = m_store.find(job.id, baseName(path));
        if (!file && m_requireInputs)
            task.missing.push_back(baseName(path));
        if (file && !contains(task.inputs, file->name))
            task.inputs.push_back(*file);
    }
    // A name with a folder belongs to a simulation's result.
    for (const auto &[name, file] : m_store.files(job.id))
        if (name.find('/') == std::string::npos && !contains(task.inputs, name))
            task.inputs.push_back(file);
    m_solver.start(std::move(task));
}

void Service::takeResults()
{
    for (const SolverResult &result : m_solver.finished()) {
        Job *owner = findJob(result.jobId);
        if (!owner)
            continue;
        auto &simulations = owner->simulations;
        const auto simulation = std::find_if(simulations.begin(), simulations.end(), [&](const Simulation &candidate) {
            return candidate.id == result.simulationId;
        });
        if (!isActive(*owner) || simulation == simulations.end() ||
            simulation->history.back().status != Status::running) { // stopped in the meantime
            for (const auto &file : result.files)
                removeFile(file.second);
            continue;
        }
        for (const auto &[name, path] : result.files)
            m_store.keep(owner->id, name, path, now());
        simulation->solved = true;
        simulation->solvedAt = now();
        simulation->problem = result.problem;
    }
}

} // namespace VelmoraPortal
