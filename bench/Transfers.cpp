#include "Transfers.h"

#include "Rows.h"

#include <velmora/TarnCrypt.h>

#include <QElapsedTimer>
#include <QEventLoop>
#include <QFile>
#include <QUrl>

#include <thread>

namespace Bench {

Client::Client(const QString &host, const QString &user, const QString &password)
{
    qputenv("VELMORA_API_URL", host.toUtf8());
    finish([&](const Done &done) {
        m_api.logUserIn(user.toStdString(), password.toStdString(), "",
                        [done](const Velmora::ApiError &error) { done(error); });
    });
}

void Client::finish(const std::function<void(const Done &)> &start)
{
    QEventLoop loop;
    bool over = false;
    start([&](const Velmora::ApiError &error) {
        require(Velmora::succeeded(error), error.errorTitle + ": " + error.errorMessage);
        over = true;
        loop.quit();
    });
    for (auto next = std::chrono::steady_clock::now(); !over && m_interval.count() > 0;) {
        m_api.processEvents();
        std::this_thread::sleep_until(next += m_interval);
    }
    if (!over)
        loop.exec();
}

template <typename List, typename Start> void Client::all(const List &list, const Start &start)
{
    finish([&](const Done &done) {
        auto left = std::make_shared<std::size_t>(list.size());
        for (const auto &item : list)
            start(item, [left, done](const Velmora::ApiError &error) {
                if (!Velmora::succeeded(error) || --*left == 0)
                    done(error);
            });
    });
}

void Client::upload(const QStringList &paths, const QString &job)
{
    all(paths, [&](const QString &path, const auto &done) {
        m_api.uploadFile({path.toStdString(), job.toStdString(), 0}, {},
                         [done](const auto &error, const auto &) { done(error); });
    });
}

std::list<Velmora::CloudFile> Client::files(const QString &job)
{
    std::list<Velmora::CloudFile> list;
    finish([&](const Done &done) {
        m_api.getJobFileList(job.toStdString(), true, [&list, done](const auto &error, const auto &files) {
            list = files;
            done(error);
        });
    });
    return list;
}

void Client::download(const std::list<Velmora::CloudFile> &files, const QString &folder)
{
    all(files, [&](const Velmora::CloudFile &file, const auto &done) {
        m_api.downloadFile({folder.toStdString() + '/' + file.fileName, file}, {},
                           [done](const auto &error, const auto &) { done(error); });
    });
}

double Client::firstByte(const QString &path, const QString &job)
{
    const Velmora::FileUploadDetails file{path.toStdString(), job.toStdString(), 0};
    double result = -1;
    QElapsedTimer clock;
    clock.start();
    finish([&](const Done &done) {
        m_api.uploadFile(
            file,
            [&](const auto &, std::int64_t) {
                if (result >= 0)
                    return;
                result = static_cast<double>(clock.nsecsElapsed()) * 1e-6;
                m_api.cancelUpload(file);
            },
            [done](const auto &, const auto &) {
                done({200, {}, {}});
            });
    });
    require(result >= 0, "the upload sent nothing");
    return result;
}

std::list<Velmora::CloudFile> named(std::list<Velmora::CloudFile> files, const std::string &beginning)
{
    files.remove_if([&](const Velmora::CloudFile &file) { return file.fileName.find(beginning) != 0; });
    require(!files.empty(), "no file is listed as " + beginning);
    return files;
}

QNetworkRequest requestTo(const QJsonObject &address, const QString &name, qint64 size)
{
    QNetworkRequest request(QUrl(filled(address[QStringLiteral("uri")].toString(), name, size)));
    const QJsonObject headers = address[QStringLiteral("headers")].toObject();
    for (auto header = headers.begin(); header != headers.end(); ++header)
        request.setRawHeader(header.key().toUtf8(), filled(header.value().toString(), name, size).toUtf8());
    return request;
}

std::string enc(bool encrypt, const QByteArray &key, const std::string &in, const std::string &out)
{
    const QByteArray iv(reinterpret_cast<const char *>(Velmora::jobFileIv), sizeof Velmora::jobFileIv);
    return std::string("openssl enc ") + (encrypt ? "-e" : "-d") + " -aes-256-cbc -bufsize 1048576 -K " +
           key.toHex().toStdString() + " -iv " + iv.toHex().toStdString() + " -in '" + in + '\'' +
           (out.empty() ? out : " -out '" + out + '\'');
}

std::string curlSection(const Portal &portal, const QNetworkRequest &request, const std::string &what)
{
    std::string text = "next\nsilent\nshow-error\nfail\ncacert = \"" + portal.caFile().toStdString() + "\"\nurl = \"" +
                       request.url().toEncoded().toStdString() + "\"\n" + what;
    for (const QByteArray &name : request.rawHeaderList())
        text += "header = \"" + name.toStdString() + ": " + request.rawHeader(name).toStdString() + "\"\n";
    return text;
}

std::string curlUpload(const Portal &portal, const QJsonObject &address, const QString &path, const QString &name)
{
    const QString verb = address[QStringLiteral("method")].toString(QStringLiteral("POST"));
    return curlSection(portal, requestTo(address, name, QFile(path).size()),
                       "upload-file = \"" + path.toStdString() + "\"\nrequest = " + verb.toStdString() +
                           "\nheader = Expect:\n");
}

void curl(const QString &folder, const std::string &sections)
{
    const QString path = folder + QStringLiteral("/curl.conf");
    QFile file(path);
    require(file.open(QIODevice::WriteOnly) && file.write(sections.c_str()) >= 0, "cannot write curl's configuration");
    file.close();
    run("curl --parallel --parallel-max 16 --config '" + path.toStdString() + "' >'" + folder.toStdString() +
        "/curl.out' 2>&1");
}

} // namespace Bench
