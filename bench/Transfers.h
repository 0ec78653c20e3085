#pragma once

#include "Portal.h"

#include <velmora/CloudAPI.h>

#include <QNetworkRequest>

#include <chrono>
#include <functional>
#include <list>
#include <memory>
#include <string>

/// Transfers by the library, and by the tools that a user would take otherwise.
namespace Bench {

/// The library as an application uses it. Every member waits for the end.
class Client {
public:
    Client(const QString &host, const QString &user, const QString &password);

    /// Call `processEvents` so often, instead of running an event loop.
    void pumpEvery(std::chrono::milliseconds interval) { m_interval = interval; }
    void upload(const QStringList &paths, const QString &job);
    std::list<Velmora::CloudFile> files(const QString &job);
    void download(const std::list<Velmora::CloudFile> &files, const QString &folder);
    /// Milliseconds until the first bytes of an upload were sent. Cancels it then.
    double firstByte(const QString &path, const QString &job);

private:
    using Done = std::function<void(const Velmora::ApiError &)>;

    void finish(const std::function<void(const Done &)> &start);
    template <typename List, typename Start> void all(const List &list, const Start &start);

    Velmora::CloudAPI m_api;
    std::chrono::milliseconds m_interval{0};
};

/// Files whose names begin so.
std::list<Velmora::CloudFile> named(std::list<Velmora::CloudFile> files, const std::string &beginning);

/// With the placeholders of an upload address filled in.
QNetworkRequest requestTo(const QJsonObject &address, const QString &name = {}, qint64 size = 0);

/// `openssl enc` as a command; with `out` left empty it writes to its standard output.
std::string enc(bool encrypt, const QByteArray &key, const std::string &in, const std::string &out);
/// A section of curl's configuration file; `what` are the lines of its own.
std::string curlSection(const Portal &portal, const QNetworkRequest &request, const std::string &what);
std::string curlUpload(const Portal &portal, const QJsonObject &address, const QString &path, const QString &name);
/// Runs `curl --parallel --parallel-max 16`.
void curl(const QString &folder, const std::string &sections);

} // namespace Bench
