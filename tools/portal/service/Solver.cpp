#include "portal/service/Solver.h"

#include "portal/json/Json.h"

#include <stdexcept>
#include <utility>

namespace VelmoraPortal {
namespace {

constexpr std::size_t bufferSize = 256 * 1024;

struct Stopped {};

template <typename Take>
void readAll(const StoredFile &input, const Key &key, const std::atomic<bool> &stopped, Take take)
{
    PlainReader reader(input.path, key, 0, input.plainSize);
    std::string buffer(bufferSize, '\0');
    long long left = input.plainSize;
    while (left > 0) {
        if (stopped)
            throw Stopped();
        const std::size_t count = reader.read(buffer.data(), buffer.size());
        if (count == 0)
            throw std::runtime_error("is shorter than it was");
        take(buffer.data(), count);
        left -= static_cast<long long>(count);
    }
}

/// Solves one simulation.
class Run {
public:
    Run(const SolverTask &task, const std::function<std::string()> &freshPath, const std::atomic<bool> &stopped,
        std::map<std::string, std::string> &digests)
        : m_task(task)
        , m_freshPath(freshPath)
        , m_stopped(stopped)
        , m_digests(digests)
    {
        m_result.jobId = task.jobId;
        m_result.simulationId = task.simulationId;
    }

    SolverResult result()
    {
        m_log = "Simulation " + m_task.simulationId + " of " + m_task.jobId +
                "\nParameters: " + m_task.consoleParameters + '\n';
        try {
            for (const std::string &name : m_task.missing)
                throw std::runtime_error("The input file \"" + name + "\" was not uploaded");
            solve();
            m_log += "Finished\n";
        } catch (const std::exception &error) {
            m_result.problem = error.what();
            m_log += "Failed: " + m_result.problem + '\n';
        }
        add("run.log", m_log);
        return std::move(m_result);
    }

private:
    void solve()
    {
        std::string line = m_task.simulationId;
        Json inputs = Json::array();
        for (const StoredFile &input : m_task.inputs) {
            const std::string digest = digestOf(input);
            m_log +=
                "Input " + input.name + ": " + std::to_string(input.plainSize) + " bytes, SHA-256 " + digest + '\n';
            line += ' ' + input.name + '=' + digest;
            inputs.push_back({{"name", input.name}, {"size", input.plainSize}, {"sha256", digest}});
        }
        line += '\n';
        Digest digest;
        long long size = 0;
        const std::string path = m_freshPath();
        CipherWriter writer(path, m_task.key);
        const auto write = [&](const char *data, std::size_t count) {
            digest.update(data, count);
            writer.write(data, count);
            size += static_cast<long long>(count);
        };
        write(line.data(), line.size());
        for (const StoredFile &input : m_task.inputs)
            readAll(input, m_task.key, m_stopped, write);
        writer.commit();
        m_result.files.emplace_back(m_task.simulationId + "/results.dat", path);
        const std::string hex = digest.hex();
        add("summary.json", dump({{"jobId", m_task.jobId},
                                  {"simulationId", m_task.simulationId},
                                  {"consoleParameters", m_task.consoleParameters},
                                  {"inputs", std::move(inputs)},
                                  {"results", {{"size", size}, {"sha256", hex}}}}));
        std::string residuals;
        for (std::size_t i = 0; i + 4 <= hex.size(); i += 4)
            residuals +=
                std::to_string(i / 4 + 1) + ' ' + std::to_string(std::stoi(hex.substr(i, 4), nullptr, 16)) + '\n';
        add("rtg/residuals.dat", residuals);
    }

    std::string digestOf(const StoredFile &input)
    {
        std::string &known = m_digests[input.path]; // a path is never used for another file
        if (!known.empty())
            return known;
        if (input.plainSize < 0)
            throw std::runtime_error("The input file \"" + input.name + "\" is not encrypted with the job's key");
        Digest digest;
        try {
            readAll(input, m_task.key, m_stopped,
                    [&](const char *data, std::size_t count) { digest.update(data, count); });
        } catch (const std::exception &error) {
            throw std::runtime_error("The input file \"" + input.name + "\": " + error.what());
        }
        return known = digest.hex();
    }

    void add(const std::string &name, const std::string &text)
    {
        const std::string path = m_freshPath();
        CipherWriter writer(path, m_task.key);
        writer.write(text);
        writer.commit();
        m_result.files.emplace_back(m_task.simulationId + '/' + name, path);
    }

    const SolverTask &m_task;
    const std::function<std::string()> &m_freshPath;
    const std::atomic<bool> &m_stopped;
    std::map<std::string, std::string> &m_digests;
    SolverResult m_result;
    std::string m_log;
};

} // namespace

Solver::Solver(std::function<std::string()> freshPath)
    : m_freshPath(std::move(freshPath))
    , m_thread([this] { run(); })
{
}

Solver::~Solver()
{
    {
        const std::lock_guard lock(m_mutex);
        m_stopped = true;
    }
    m_wake.notify_all();
    m_thread.join();
}

void Solver::start(SolverTask task)
{
    {
        const std::lock_guard lock(m_mutex);
        m_tasks.push_back(std::move(task));
    }
    m_wake.notify_all();
}

std::vector<SolverResult> Solver::finished()
{
    const std::lock_guard lock(m_mutex);
    return std::exchange(m_results, {});
}

void Solver::run()
{
    for (;;) {
        SolverTask task;
        {
            std::unique_lock lock(m_mutex);
            m_wake.wait(lock, [this] { return m_stopped || !m_tasks.empty(); });
            if (m_stopped)
                return;
            task = std::move(m_tasks.front());
            m_tasks.pop_front();
        }
        SolverResult result;
        try {
            result = Run(task, m_freshPath, m_stopped, m_digests).result();
        } catch (const Stopped &) {
            return;
        } catch (const std::exception &error) { // not even the log could be written
            result.jobId = task.jobId;
            result.simulationId = task.simulationId;
            result.problem = error.what();
        }
        const std::lock_guard lock(m_mutex);
        m_results.push_back(std::move(result));
    }
}

} // namespace VelmoraPortal
