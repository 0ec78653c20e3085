// Follows a job to its end. The exit status is 0 when it has finished.
#include "Application.h"

int main(int count, char **arguments)
{
    if (count != 2) {
        std::cerr << "usage: follow JOB\n";
        return 2;
    }
    Application application;
    const auto progressed = [](const Velmora::JobProgress &job) {
        for (const Velmora::SimulationProgress &simulation : job.simulationProgressList)
            std::cout << simulation.simulationId << ' ' << simulation.progress << " %  ";
        std::cout << std::endl;
    };
    const auto ended = [&](const Velmora::ApiError &error, const Velmora::JobDetails &job) {
        if (application.failed(error)) // it failed or was stopped, or its end cannot be known
            return;
        std::cout << job.jobName << " has finished.\n";
        application.finish();
    };
    return application.run([&] { application.api.followJob(arguments[1], progressed, ended); });
}
