#pragma once

// A local portal, a folder, and applications in processes of their own that transfer files between them.

#include "support/Loopback.h"
#include "support/TestFolder.h"

#include "portal/Portal.h"

namespace RecoveryTests {

using std::string;

inline constexpr char job[] = "job-wing0001";

inline const VelmoraPortal::SeededUser &user = VelmoraPortal::seededUsers()[0];

/// `velmora_recovery_child`, signed in and waiting for `go`.
class Child : public QProcess {
public:
    Child(const VelmoraPortal::Portal &portal, const QStringList &transfers)
    {
        setProcessChannelMode(ForwardedErrorChannel);
        start(QCoreApplication::applicationDirPath() + QStringLiteral("/velmora_recovery_child"),
              QStringList{QString::fromStdString(portal.caFile()), QString::fromStdString(user.email),
                          QString::fromStdString(user.password)} +
                  transfers);
        while (!canReadLine() && waitForReadyRead(10000)) {
        }
        EXPECT_EQ(readLine(), "ready\n");
    }
    ~Child() override
    {
        kill();
        waitForFinished();
    }

    void go() { write("\n"), waitForBytesWritten(); }
    /// The exit code; -1 when it does not end.
    int end()
    {
        const bool ended = state() == NotRunning || waitForFinished(60000);
        return ended && exitStatus() == NormalExit ? exitCode() : -1;
    }
};

struct RecoveryTest : FolderTest {
    void store(const char *name, const QByteArray &bytes) { portal.addFile(job, name, bytes.toStdString()); }
    static VelmoraPortal::Options options(std::int64_t pieceSize, const QString &folder)
    {
        VelmoraPortal::Options options;
        options.directory = folder.toStdString();
        options.storage.pieceSize = pieceSize;
        return options;
    }
    std::unique_ptr<Velmora::CloudAPI> session() const
    {
        auto api = std::make_unique<Velmora::CloudAPI>();
        EXPECT_TRUE(signIn(*api, user.email, user.password));
        return api;
    }

    QTemporaryDir private_; ///< the portal's
    VelmoraPortal::Portal portal{options(1 << 20, private_.path())};
    ScopedTrust trust{QByteArray::fromStdString(portal.caPem())};
    ScopedEnvironment address{"VELMORA_API_URL", QByteArray::fromStdString(portal.host())};
};

} // namespace RecoveryTests
