#pragma once

#include "api/Application.h"
#include "notify/SocketManager.h"
#include "operations/Follow.h"
#include "storage/StorageClient.h"
#include "transfer/FileTransferManager.h"
#include "transfer/JobGrants.h"
#include "transport/RestClient.h"
#include "transport/Session.h"

#include <velmora/CloudAPI.h>

namespace Velmora {

/// The engine behind `CloudAPI`: owns the parts and connects them to each other.
///
/// Rules that every part keeps:
/// - Callbacks of the application run from a clean stack. Replies and sockets are read inside Qt's signals, the
/// callback
///   is queued (base/Later.h). So a callback may destroy this object, and with it replies and sockets, while no signal
///   of theirs is being emitted.
/// - After a callback nothing of this object is touched.
/// - Whatever is still queued dies with this object, uncalled.
class CloudAPIImpl {
    ApplicationClaim m_application; // first, so that it outlives the parts

public:
    CloudAPIImpl();
    ~CloudAPIImpl();
    CloudAPIImpl(const CloudAPIImpl &) = delete;
    CloudAPIImpl &operator=(const CloudAPIImpl &) = delete;

    /// For the flat functions, and for tests, which reach the parts by their names.
    static CloudAPIImpl &of(const CloudAPI &api) { return *api.m_impl; }

    static void applyProxy(const ProxyDefinition &proxy);
    void setClientOptions(const ClientOptions &options);
    void setAPIPortal(PortalTarget portal);

    // These run an event loop until they are done.
    int currentNetworkStatus();
    void uploadInputFile(const FileUploadDetails &file, const UploadProgress &onProgress,
                         const ResultDone<FileUploadDetails> &onComplete);

    // The parts; the last one dies first.
    RestClient rest;
    Session session{rest};
    SocketManager sockets;
    JobGrants grants{rest};
    StorageClient storage;
    FileTransferManager transfers{storage.pool()};
    JobFollowers followers{rest, session};

    void *userData = nullptr; ///< the application's own; see `setUserData`

private:
    void connectTransfers();
};

} // namespace Velmora
