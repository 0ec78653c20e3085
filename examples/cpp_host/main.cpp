// Signs in and lists the user's jobs, with the class `CloudAPI` and no line of Qt.
//
//     VELMORA_USER=… VELMORA_PASSWORD=… cpp_host

#include <velmora/CloudAPI.h>

#include <chrono>
#include <cstdlib>
#include <iostream>
#include <thread>

namespace {

std::string setting(const char *name)
{
    const char *value = std::getenv(name);
    return value ? value : "";
}

/// Reports a failure. Returns whether there was none.
bool check(const Velmora::ApiError &error, const char *what)
{
    if (error.errorCode == 0)
        std::cerr << what << ": no answer came\n";
    else if (!succeeded(error))
        std::cerr << what << ": " << error.errorTitle << ": " << Velmora::plainText(error.errorMessage) << '\n';
    return succeeded(error);
}

} // namespace

int main()
{
    Velmora::CloudAPI api;
    bool waiting = true;
    bool done = false;

    const auto listed = [&](const Velmora::ApiError &error, const std::list<Velmora::JobDetails> &jobs) {
        waiting = false;
        done = check(error, "list of jobs");
        for (const Velmora::JobDetails &job : jobs)
            std::cout << job.jobId << "  " << latestStatus(job) << "  " << job.jobName << '\n';
    };
    api.logUserIn(setting("VELMORA_USER"), setting("VELMORA_PASSWORD"), setting("VELMORA_MFA"),
                  [&](const Velmora::ApiError &error) {
                      if (check(error, "sign-in"))
                          api.getAllJobDetails(listed);
                      else
                          waiting = false;
                  });

    while (waiting) { // or run your Qt event loop
        api.processEvents();
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return done ? EXIT_SUCCESS : EXIT_FAILURE;
}
