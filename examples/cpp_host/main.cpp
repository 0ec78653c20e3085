// Signs in and lists the user's jobs, with the class `CloudAPI` and no line of Qt.
//
//     VELMORA_USER=… VELMORA_PASSWORD=… cpp_host
//
// VELMORA_CA may name a file of certificate authorities to trust as well, such as that of a local portal.

#include <velmora/CloudAPI.h>

#include <cstdlib>
#include <iostream>

namespace {

std::string setting(const char *name)
{
    const char *value = std::getenv(name);
    return value ? value : "";
}

/// Reports a failure. Returns whether there was none.
bool check(const Velmora::CloudAPI &api, const Velmora::ApiError &error, const char *what)
{
    if (error.errorCode == 0)
        std::cerr << what << ": " << api.lastNetworkError() << '\n';
    else if (!succeeded(error))
        std::cerr << what << ": " << error.errorTitle << ": " << Velmora::plainText(error.errorMessage) << '\n';
    return succeeded(error);
}

} // namespace

int main()
{
    Velmora::ClientOptions options = Velmora::ClientOptions::robust();
    options.caFile = setting("VELMORA_CA");
    Velmora::CloudAPI api;
    api.setClientOptions(options);
    bool waiting = true;
    bool done = false;

    const auto listed = [&](const Velmora::ApiError &error, const std::list<Velmora::JobDetails> &jobs) {
        waiting = false;
        done = check(api, error, "list of jobs");
        for (const Velmora::JobDetails &job : jobs)
            std::cout << job.jobId << "  " << latestStatus(job) << "  " << job.jobName << '\n';
    };
    api.logUserIn(setting("VELMORA_USER"), setting("VELMORA_PASSWORD"), setting("VELMORA_MFA"),
                  [&](const Velmora::ApiError &error) {
                      if (check(api, error, "sign-in"))
                          api.getAllJobDetails(listed);
                      else
                          waiting = false;
                  });

    while (waiting) // or run your Qt event loop
        api.processEvents(1000);
    return done ? EXIT_SUCCESS : EXIT_FAILURE;
}
