// Signs in and lists the user's jobs.
#include "Application.h"

int main()
{
    Application application;
    const auto listed = [&](const Velmora::ApiError &error, const std::list<Velmora::JobDetails> &jobs) {
        if (application.failed(error))
            return;
        for (const Velmora::JobDetails &job : jobs)
            std::cout << job.jobId << "  " << latestStatus(job) << "  " << job.jobName << '\n';
        application.finish();
    };
    return application.run([&] { application.api.getAllJobDetails(listed); });
}
