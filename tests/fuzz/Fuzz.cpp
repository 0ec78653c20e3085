// Input from outside, mutated: texts of the service and of applications, names, addresses, cipher text, messages.
// VELMORA_FUZZ names the target; see scripts/fuzz. Built without a fuzzer, the program runs each file of a folder once:
// the suite does that with the corpus.

#include "api/flat/Views.h"
#include "crypto/FileCipher.h"
#include "model/Json.h"
#include "notify/CloudWebSocketClient.h"
#include "notify/SocketConnection.h"
#include "storage/Sink.h"
#include "support/TestFolder.h"
#include "transfer/Address.h"
#include "transfer/PieceName.h"

#include <velmora/CloudAPI.h>
#include <velmora/CloudAPIFlat.h>
#include <velmora/TarnCrypt.h>

using namespace Velmora;

namespace {

const TestFolder folder;

void demand(bool holds, const char *what)
{
    if (holds)
        return;
    std::fprintf(stderr, "broken: %s\n", what);
    std::abort();
}

template <class Value> void isReadable(const Value &value)
{
    demand(QJsonDocument::fromJson(QByteArray::fromStdString(outputText(value))).isObject(), "a text is valid JSON");
}

template <class... Records> void readAll(const QByteArray &text)
{
    (isReadable(readReply<Records>(text)), ...);
    (isReadable(readInput<Records>(text)), ...);
}

template <class... Records> void readLists(const QByteArray &text) { (isReadable(readReplyList<Records>(text)), ...); }

void replies(const QByteArray &text)
{
    readAll<CloudFile, ItemTag, UserDetails, AccountDetails, AccountTransaction, AccountBalance, HpcDetails,
            JobStatusEntry, SimulationDetails, JobDetails, JobProgress, SimulationAbortState, FileUploadDetails,
            FileDownloadDetails>(text);
    readLists<CloudFile, ItemTag, AccountDetails, JobDetails, SimulationAbortState>(text);
    bodyMessage(text);
}

void applicationTexts(const QByteArray &text)
{
    const auto job = readInput<JobSubmit>(text);
    std::list<JobSubmitError> failures;
    const bool valid = job.validate(&failures);
    demand(valid == failures.empty(), "a valid job has no failures");
    demand(QJsonDocument::fromJson(QByteArray::fromStdString(job.toSubmissionJson())).isObject() == valid,
           "a valid job gives an object");
    CloudAPI api;
    submitNewJob_Json(&api, text.constData(), [](const char *, const char *) {});
    searchUserTags_Json(&api, text.constData(), nullptr);
    uploadFile_Json(&api, text.constData(), nullptr, nullptr);
    downloadFile_Json(&api, text.constData(), nullptr, nullptr);
    cancelUpload_Json(&api, text.constData());
    cancelDownload_Json(&api, text.constData());
}

void pieces(const QByteArray &text)
{
    const QString root = folder.root(), target = root + QLatin1String("/target");
    std::map<int, QByteArray> ordered;
    for (const QByteArray &line : text.split('\n')) {
        const QString name = QString::fromUtf8(line), base = baseName(name);
        const int number = pieceNumber(name);
        demand(number >= -1 && number < 100000, "a number has five digits");
        demand((number < 0) == (withoutPieceSuffix(name) == name), "a number comes with its suffix");
        if (!isSafeFileName(base))
            continue;
        const QString clean = QDir::cleanPath(root + QLatin1Char('/') + base),
                      working = WorkingFile::pathOf(root, base, 2);
        demand(QFileInfo(clean).path() == root && clean != root, "a safe name stays in its folder");
        demand(QFileInfo(working).path() == root, "a working file stays in its folder");
        demand(QFileInfo(working).fileName().toUtf8().size() <= 255, "a working name fits its folder");
        if (number >= 0)
            ordered.emplace(number, line);
    }
    const std::atomic<bool> go{false};
    WorkingFile whole(root, QStringLiteral("whole"));
    std::string expected;
    for (const auto &[number, line] : ordered) {
        WorkingFile piece(root, QStringLiteral("whole")); // of one name, side by side
        demand(piece.open() && piece.write(line.constData(), line.size()), "a piece is written");
        demand(whole.append(piece, go), "pieces join");
        expected += line.toStdString();
    }
    demand(ordered.empty() || whole.moveTo(target, go), "a file gets into its place");
    demand(ordered.empty() || folder.read("target") == expected, "nothing is lost in joining");
    QFile::remove(target);
    demand(QDir(root).isEmpty(), "joining leaves only the target");
}

void cipherTexts(const QByteArray &text)
{
    const QByteArray key(32, 'k');
    const auto *bytes = reinterpret_cast<const unsigned char *>(key.constData());
    QByteArray cipher = text, plain(text.size() + 16, '?');
    int length = -1;
    auto *out = reinterpret_cast<unsigned char *>(plain.data());
    const int status = TarnCrypt::do_show(reinterpret_cast<unsigned char *>(cipher.data()), cipher.size(), out, &length,
                                          bytes, fixedIv);
    demand(status != 0 || (length >= 0 && length <= text.size()), "plain text is not longer than cipher text");
    demand(plain.endsWith(QByteArray(16, '?')), "nothing is written behind the room");

    const std::string path = folder.write("cipher", text.toStdString()), shown = folder.path("shown");
    demand(TarnCrypt::do_decode_binfile(path.c_str(), shown.c_str(), bytes, fixedIv) == 0, "decoding is lenient");
    const std::string decoded = folder.read("shown");
    demand(decoded.size() <= std::size_t(text.size()), "a decoded file is not longer");
    const auto file = std::make_shared<WorkingFile>(folder.root(), QStringLiteral("strict"));
    const auto sink = std::make_shared<Sink>(file, key);
    sink->begin(QThreadPool::globalInstance(), {});
    demand(sink->put(text.constData(), text.size()) == Sink::State::Taken, "there is room");
    if (sink->finish()) {
        demand(file->moveTo(toQt(path), std::atomic<bool>(false)), "a file gets into its place");
        demand(folder.read("cipher") == decoded, "strict and lenient decryption agree");
    }
    file->remove();
    QFile::remove(toQt(shown));
}

void addresses(const QByteArray &text)
{
    const QJsonObject address = QJsonDocument::fromJson(text).object();
    const QString name = address.value(QLatin1String("fileName")).toString();
    const AddressRequest made = addressRequest(address, name, 4711);
    if (made.problem.isEmpty()) {
        const std::optional<Target> target = targetOf(made.request.address);
        demand(target && target->server.startsWith("http"), "addresses are web addresses");
        demand(target->path.startsWith('/') && !target->path.contains(' '), "a path is one word");
        for (const auto &[header, value] : made.request.headers) {
            const QByteArray line = header + value;
            demand(!line.contains('\r') && !line.contains('\n') && !line.contains('\0'), "a header is one line");
        }
    }
    const QJsonObject fields = address.value(QLatin1String("formFields")).toObject();
    const MultipartForm form = multipartForm(fields, name);
    const QByteArray boundary = "--" + form.contentType.split('"').value(1) + "\r\n";
    demand(form.head.count(boundary) == fields.size() + 1, "a form has one part for each field, and the file");
}

void messages(const QByteArray &text)
{
    int calls = 0;
    const auto count = [&](const ApiError &, const std::string &, const std::string &) { ++calls; };
    const QUrl nowhere(QStringLiteral("wss://127.0.0.1:1/"));
    SocketConnection connection(QStringLiteral("job"), std::make_unique<CloudWebSocketClient>(nowhere, QString()),
                                count, count);
    connection.slotHandleSocketMessage(QString::fromUtf8(text));
    demand(calls == 1, "a message is reported once");
}

using Target = void (*)(const QByteArray &);

Target prepare()
{
    static int count = 0;
    static QCoreApplication application(count, nullptr);
    QLoggingCategory::setFilterRules(QStringLiteral("*=false"));
    qputenv("VELMORA_API_URL", "127.0.0.1:1"); // nobody listens there
    static const std::map<QByteArray, Target> all = {{"replies", replies},     {"applications", applicationTexts},
                                                     {"pieces", pieces},       {"ciphers", cipherTexts},
                                                     {"addresses", addresses}, {"messages", messages}};
    const auto found = all.find(qgetenv("VELMORA_FUZZ"));
    demand(found != all.end(), "VELMORA_FUZZ is replies, applications, pieces, ciphers, addresses or messages");
    return found->second;
}

void run(const QByteArray &input)
{
    static const Target target = prepare();
    target(input);
}

} // namespace

#ifdef VELMORA_FUZZER

extern "C" int LLVMFuzzerTestOneInput(const unsigned char *data, std::size_t size)
{
    run(QByteArray(reinterpret_cast<const char *>(data), int(size)));
    return 0;
}

#else

int main(int argc, char **argv)
{
    int count = 0;
    QDirIterator each(QString::fromLocal8Bit(argv[argc - 1]), QDir::Files);
    while (each.hasNext()) {
        QFile file(each.next());
        demand(file.open(QIODevice::ReadOnly), "the corpus can be read");
        run(file.readAll());
        ++count;
    }
    std::fprintf(stderr, "%d inputs\n", count);
    return count > 0 ? 0 : 1;
}

#endif
