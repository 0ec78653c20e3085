#pragma once

#include "portal/storage/Store.h"

#include <atomic>
#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>

namespace VelmoraPortal {

/// One simulation to be solved.
struct SolverTask {
    std::string jobId;
    std::string simulationId;
    std::string consoleParameters;
    Key key = {};
    std::vector<StoredFile> inputs;
    std::vector<std::string> missing; ///< inputs that it must have and has not
};

/// What became of it: files still to be kept, by name; a problem means that it failed.
struct SolverResult {
    std::string jobId;
    std::string simulationId;
    std::vector<std::pair<std::string, std::string>> files; ///< name, path
    std::string problem;
};

/// Makes result files from input files, one simulation after the other, on a thread of its own.
///
///   SIM/results.dat        one line naming the simulation and every input's SHA-256, then the inputs' bytes
///   SIM/summary.json       the same as JSON, and the SHA-256 of results.dat
///   SIM/run.log            what was done, or why it failed
///   SIM/rtg/residuals.dat  a few numbers that follow from the inputs
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
