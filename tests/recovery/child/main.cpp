/// Signs in, prints "ready", waits for a line, then starts all transfers at once:
///     velmora_recovery_child CA USER PASSWORD (up JOB PATH | down JOB NAME TARGET)...
/// Prints "moving" once bytes of each transfer move, and each outcome. Exits with 0 when all have succeeded.
#include <velmora/CloudAPI.h>

#include <QtCore>

#include <set>

int main(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
    const std::vector<std::string> arguments(argv, argv + argc);
    Velmora::CloudAPI api;
    Velmora::ClientOptions options;
    options.caFile = arguments.at(1);
    api.setClientOptions(options);
    api.logUserIn(arguments.at(2), arguments.at(3), "", [&](const Velmora::ApiError &error) {
        if (!Velmora::succeeded(error))
            return QCoreApplication::exit(2);
        std::puts("ready");
        std::getchar();
        static std::size_t left = 0;
        static bool failed = false;
        const auto onMoved = [](const auto &details, std::int64_t) {
            static std::set<std::string> moving;
            if (moving.insert(details.localFileLocation).second)
                std::puts("moving");
        };
        const auto onEnd = [](const Velmora::ApiError &outcome, const auto &details) {
            std::printf("%d %s %s %s\n", outcome.errorCode, details.localFileLocation.c_str(),
                        outcome.errorTitle.c_str(), outcome.errorMessage.c_str());
            failed = failed || !Velmora::succeeded(outcome);
            if (--left == 0)
                QCoreApplication::exit(failed ? 1 : 0);
        };
        for (std::size_t i = 4; i < arguments.size();) {
            ++left;
            const bool sends = arguments[i] == "up";
            if (sends)
                api.uploadFile({arguments.at(i + 2), arguments.at(i + 1), 0}, onMoved, onEnd);
            else
                api.downloadFile({arguments.at(i + 3), {arguments.at(i + 1), arguments.at(i + 2), 0, 0, {}, false}},
                                 onMoved, onEnd);
            i += sends ? 3 : 4;
        }
    });
    return QCoreApplication::exec();
}
