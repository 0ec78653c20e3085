#pragma once

#include "portal/storage/Store.h"

#include <atomic>
#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>

namespace VelmoraPortal {

/// One simulation to solve.
struct SolverTask {
    std::string jobId;
    std::string simulationId;
    std::string consoleParameters;
    Key key = {};
    std::vector<StoredFile> inputs;
    std::vector<std::string> missing; ///< required inputs that were not uploaded
};

/// The result: files for the store; a problem means that the simulation failed.
struct SolverResult {
    std::string jobId;
    std::string simulationId;
    std::vector<std::pair<std::string, std::string>> files; ///< name, path
    std::string problem;
};

/// Makes result files from input files on a thread of its own, one simulation after the other.
///
///   SIM/results.dat        one line naming the simulation and every input's SHA-256, then the inputs' bytes
///   SIM/summary.json       the same as JSON, and the SHA-256 of results.dat
///   SIM/run.log            the steps, or the reason of the failure
///   SIM/rtg/residuals.dat  a few numbers derived from the inputs
class Solver {
public:
    explicit Solver(std::function<std::string()> freshPath);
    ~Solver();
    Solver(const Solver &) = delete;
    Solver &operator=(const Solver &) = delete;

    void start(SolverTask task);
    /// The results since the last call.
    std::vector<SolverResult> finished();

private:
    void run();

    std::function<std::string()> m_freshPath;
    std::mutex m_mutex;
    std::condition_variable m_wake;
    std::deque<SolverTask> m_tasks;
    std::vector<SolverResult> m_results;
    std::map<std::string, std::string> m_digests; ///< of inputs by path; the solver's thread only
    std::atomic<bool> m_stopped{false};
    std::thread m_thread;
};

} // namespace VelmoraPortal
