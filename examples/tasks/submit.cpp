// Submits a job whose main file was uploaded under its id.
#include "Application.h"

int main(int count, char **arguments)
{
    if (count != 4) {
        std::cerr << "usage: submit ACCOUNT JOB MAIN_FILE\n";
        return 2;
    }
    Velmora::JobSubmit job;
    job.accountID = arguments[1];
    job.jobID = arguments[2];
    job.mainFile = arguments[3];
    job.jobName = "Beam";
    job.coresRequired = 4;              // for each simulation
    job.ramEstimate = 1024;             // MB
    job.coreHourEstimate = 0.5;         // of all simulations together
    job.simulations = {"-x 1", "-x 2"}; // the solver's parameters, once for each simulation
    job.originApplication = "submit";

    Application application;
    const auto submitted = [&](const Velmora::ApiError &error, const Velmora::JobDetails &details) {
        if (application.failed(error))
            return;
        std::cout << details.jobName << " is submitted.\n";
        application.finish();
    };
    return application.run([&] { application.api.submitNewJob(job, submitted); });
}
