/// @file ClientOptions.h
/// What an application can choose of a session's behaviour. See `CloudAPI::setClientOptions`.
#ifndef VELMORA_CLIENTOPTIONS_H
#define VELMORA_CLIENTOPTIONS_H

#include <cstdint>
#include <string>

namespace Velmora {

/// How a session deals with bad networks and long runs. A default one changes nothing: no request is repeated, and none
/// has a time limit. Negative numbers count as 0.
struct ClientOptions {
    /// A renewal of the token that gets no answer, none with a token, or one with a status of 500 or more, is tried
    /// again after 1, 2, 4 … 30 s, until it succeeds, is refused, or the user signs out. Requests and subscriptions
    /// that are made during a renewal wait for it and go out with its token, in their order. They go out without one
    /// when it is refused, and when the user signs out. A token that lives 5 s or less is renewed after half of its
    /// time.
    bool keepAlive = false;
    /// Seconds that a request may go without a byte of its answer, 0 for ever. Then it ends with code 0, and so does a
    /// request that waits for a renewal, once three tries of that have failed. A renewal that is to be tried again
    /// counts as unanswered after a minute where this is 0. It does not apply to transfers. The time that the owner's
    /// thread is busy does not count.
    int answerTimeout = 0;
    /// Seconds that a transfer may go without a byte sent or received, 0 for ever. Then it breaks. To wait for its
    /// turn, for the local disk or because of a limit does not count.
    int stallTimeout = 0;
    /// How often a transfer that broke goes on, for each file or piece of a file. The pauses are 1, 2, 4 … s. A
    /// download goes on where it broke, if the storage can do that and still has the same file. An upload starts again.
    /// An address that the storage refuses is asked for anew, and counts as one that broke; so do the statuses 408, 429
    /// and 500 or more, also of the request for a key or an address. Other refusals, a local file that changed or
    /// cannot be written, and certificates that are not trusted end the transfer at once.
    int transferRetries = 0;
    /// Bytes per second that all uploads of the session together may send, 0 for no limit.
    std::int64_t uploadBytesPerSecond = 0;
    /// Bytes per second that all downloads of the session together may receive, 0 for no limit.
    std::int64_t downloadBytesPerSecond = 0;
    /// Transfers to one storage server, and as many from it, that may move bytes at a time, 0 for the library's choice.
    /// One that only waits for the server does not count.
    int connectionsPerHost = 0;
    /// A file of certificate authorities in PEM form that are trusted besides those of the system, for requests,
    /// transfers and subscriptions (which accept any certificate, with this or without). Its path is UTF-8. Empty for
    /// none. It is read by `setClientOptions`, and for transfers when one starts. While it cannot be read, or holds no
    /// certificate, transfers fail and requests are not sent: they end with code 0, and `lastNetworkError` names the
    /// file.
    std::string caFile;

    /// What suits an application that has nothing better to do about a failure than to try again.
    static ClientOptions robust()
    {
        ClientOptions options;
        options.keepAlive = true;
        options.answerTimeout = 120;
        options.stallTimeout = 60;
        options.transferRetries = 5;
        return options;
    }
};

} // namespace Velmora

#endif
