#include "manual/Manual.h"
#include "portal/Portal.h"
#include "portal/control/Control.h"

#include <velmora/Version.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <csignal>
#include <iostream>
#include <nlohmann/json.hpp>

#include <poll.h>
#include <unistd.h>

namespace {

int wakePipe[2];

extern "C" void onSignal(int)
{
    const char byte = 0;
    const auto ignored = ::write(wakePipe[1], &byte, 1);
    static_cast<void>(ignored);
}

/// Returns on SIGTERM, SIGINT or the end of standard input.
void waitForEnd()
{
    pollfd watched[2] = {{wakePipe[0], POLLIN, 0}, {STDIN_FILENO, POLLIN, 0}};
    for (;;) {
        if (::poll(watched, 2, -1) < 0) {
            if (errno == EINTR)
                continue;
            return;
        }
        if (watched[0].revents != 0 || (watched[1].revents & POLLNVAL) != 0)
            return;
        if (watched[1].revents == 0)
            continue;
        char buffer[4096];
        const auto count = ::read(STDIN_FILENO, buffer, sizeof buffer);
        if (count == 0)
            return;
        if (count < 0 && errno != EINTR && errno != EAGAIN)
            watched[1].fd = -1; // a terminal, which a background process may not read
    }
}

std::string footer()
{
    std::string text = "Seeded users:\n";
    for (const auto &user : VelmoraPortal::seededUsers())
        text += "  " + user.email + "  password " + user.password +
                (user.mfaCode.empty() ? "" : "  MFA code " + user.mfaCode) + '\n';
    text +=
        "Accounts ACC-1001 (the first user) and ACC-2002 (both), clusters hpc-eu-1, hpc-us-1 and hpc-lab-1 (accepts\n"
        "no jobs), some past jobs with files, tags and transactions.\n\n";
    text += VelmoraPortal::controlHelp();
    text += "\n\nExample: curl --cacert CA https://HOST/control/faults -d "
            "'{\"kind\": \"status\", \"path\": \"job/submit\", \"status\": 503, \"body\": \"{}\"}'";
    return text;
}

} // namespace

int main(int argc, char **argv)
{
    CLI::App app("The whole cloud service on this machine: HTTPS and secure WebSocket on one loopback port.\n"
                 "Prints one line of JSON with its address and the certificate to trust, then serves until\n"
                 "SIGTERM, SIGINT or the end of standard input.");
    app.name("velmora-portal");
    app.footer(footer());
    app.set_version_flag("--version", "velmora-portal " VELMORA_VERSION, "Print the version");
    app.add_flag_callback(
           "--manual",
           [&app] {
               std::cout << Velmora::Cli::manualPage(app);
               throw CLI::Success();
           },
           "Print the manual page")
        ->group("");
    VelmoraPortal::Options options;
    double duration = 20;
    long lifetime = 3600;
    bool verbose = false;
    long addressLifetime = options.storage.addressLifetime.count();
    app.add_option("--port", options.port, "Port to listen on; 0 takes a free one")
        ->type_name("N")
        ->capture_default_str();
    app.add_option("--directory", options.directory, "Private directory (mode 0700); a temporary one when not given")
        ->type_name("DIR");
    app.add_option("--job-duration", duration, "Seconds from a job's submission to its finish")
        ->type_name("SECONDS")
        ->capture_default_str()
        ->check(CLI::Range(0.01, 1e6).description(""));
    app.add_option("--token-lifetime", lifetime, "Seconds until an id token expires")
        ->type_name("SECONDS")
        ->capture_default_str()
        ->check(CLI::Range(1L, 0x7fffffffL).description(""));
    app.add_option("--upload", options.storage.upload, "How files come in: form, put or post")
        ->type_name("form|put|post")
        ->transform(CLI::CheckedTransformer(VelmoraPortal::uploadNames).description(""))
        ->default_str("form");
    app.add_option("--download", options.storage.download, "How pieces go out: get, post or mixed")
        ->type_name("get|post|mixed")
        ->transform(CLI::CheckedTransformer(VelmoraPortal::downloadNames).description(""))
        ->default_str("get");
    app.add_option("--piece-size", options.storage.pieceSize, "Plain bytes in a piece of a download")
        ->type_name("BYTES")
        ->capture_default_str()
        ->check(CLI::Range(1L, 1L << 40).description(""));
    app.add_flag("--shuffle", options.storage.shuffle, "List the pieces of a download out of order");
    app.add_option("--address-lifetime", addressLifetime, "Seconds until a signed address expires")
        ->type_name("SECONDS")
        ->capture_default_str()
        ->check(CLI::Range(0L, 0x7fffffffL).description(""));
    app.add_option("--address-uses", options.storage.addressUses,
                   "Requests until a signed address expires; 0: any number")
        ->type_name("N")
        ->capture_default_str()
        ->check(CLI::Range(0, 1000000).description(""));
    app.add_option("--expired-status", options.storage.expiredStatus, "Status for an expired address")
        ->type_name("401|403|404|410")
        ->capture_default_str()
        ->check(CLI::IsMember(VelmoraPortal::expiredStatuses).description(""));
    app.add_flag("--require-inputs", options.requireInputs,
                 "A job fails when an input that its submission names was not uploaded");
    app.add_flag("--verbose", verbose, "One line a request on standard error");
    CLI11_PARSE(app, argc, argv);
    options.jobDuration = std::chrono::milliseconds(static_cast<long>(duration * 1000));
    options.storage.addressLifetime = std::chrono::seconds(addressLifetime);
    options.tokenLifetime = std::chrono::seconds(lifetime);
    if (verbose)
        options.log = [](const std::string &line) { std::cerr << line + '\n' << std::flush; };

    if (::pipe(wakePipe) != 0)
        return 1;
    std::signal(SIGTERM, onSignal);
    std::signal(SIGINT, onSignal);
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGTTIN, SIG_IGN);
    try {
        const VelmoraPortal::Portal portal(options);
        nlohmann::ordered_json users = nlohmann::ordered_json::array();
        for (const auto &user : VelmoraPortal::seededUsers()) {
            users.push_back({{"email", user.email}, {"password", user.password}});
            if (!user.mfaCode.empty())
                users.back()["mfaCode"] = user.mfaCode;
        }
        const nlohmann::ordered_json line = {{"address", "127.0.0.1"},
                                             {"port", portal.port()},
                                             {"host", portal.host()},
                                             {"ca", portal.caFile()},
                                             {"users", users}};
        std::cout << line.dump() << std::endl;
        waitForEnd();
    } catch (const std::exception &error) {
        std::cerr << "velmora-portal: " << error.what() << '\n';
        return 1;
    }
    return 0;
}
