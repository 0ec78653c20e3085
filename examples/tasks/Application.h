// What the programs of this folder share: they sign in, do one thing, and end.
//
// VELMORA_USER and VELMORA_PASSWORD hold the user's credentials, VELMORA_MFA a one-time code where the user needs one.
// VELMORA_CA may name a file of certificate authorities to trust as well, such as that of a local portal.
#pragma once

#include <velmora/CloudAPI.h>

#include <cstdlib>
#include <functional>
#include <iostream>

class Application {
public:
    Application()
    {
        Velmora::ClientOptions options = Velmora::ClientOptions::robust();
        options.caFile = setting("VELMORA_CA");
        api.setClientOptions(options);
    }

    // Returns the exit status, once the task or a failure has set it.
    int run(const std::function<void()> &task)
    {
        api.logUserIn(setting("VELMORA_USER"), setting("VELMORA_PASSWORD"), setting("VELMORA_MFA"),
                      [&](const Velmora::ApiError &error) {
                          if (!failed(error))
                              task();
                      });
        while (m_status < 0) // or run your Qt event loop
            api.processEvents(1000);
        return m_status;
    }

    void finish(int status = EXIT_SUCCESS) { m_status = status; }

    // The first argument of every completion is the outcome. Code 0 means that no whole answer came.
    bool failed(const Velmora::ApiError &error)
    {
        if (succeeded(error))
            return false;
        std::cerr << (error.errorCode == 0 ? api.lastNetworkError()
                                           : error.errorTitle + ": " + Velmora::plainText(error.errorMessage))
                  << '\n';
        finish(EXIT_FAILURE);
        return true;
    }

    Velmora::CloudAPI api;

private:
    static std::string setting(const char *name)
    {
        const char *value = std::getenv(name);
        return value ? value : "";
    }

    int m_status = -1; // not finished yet
};
