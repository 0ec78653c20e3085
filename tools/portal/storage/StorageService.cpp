#include "portal/storage/StorageService.h"

#include "portal/http/Multipart.h"
#include "portal/http/Text.h"
#include "portal/storage/Ranges.h"

#include <optional>
#include <system_error>

namespace VelmoraPortal {
namespace {

const std::string storagePath = "/storage/";
constexpr std::size_t maxName = 1024;
constexpr std::size_t maxField = 16 * 1024;

Answer refused(int status, const std::string &message)
{
    Answer answer;
    answer.response = messageResponse(status, message);
    return answer;
}

/// The header's number. Throws a refusal when it is missing or no number.
long long numberIn(const HttpRequest &head, const char *name)
{
    const std::string *text = findHeader(head.headers, name);
    const long long number = text ? numberOf(*text) : -1;
    if (number < 0)
        throw Refusal(400, "The header \"" + std::string(name) + "\" must be a number of bytes");
    return number;
}

void requireSize(const std::string &what, long long named, long long received)
{
    if (named != received)
        throw Refusal(400, what + " names " + std::to_string(named) + " bytes, but the file has " +
                               std::to_string(received));
}

/// A sink that keeps the first refusal and ignores the rest of the body.
class CheckingSink : public BodySink {
public:
    void take(const char *data, std::size_t size) final
    {
        guarded([&] { consume(data, size); });
    }

    Answer finish() final
    {
        std::optional<Answer> answer;
        guarded([&] { answer = end(); });
        return answer ? std::move(*answer) : std::move(m_refusal.value());
    }

    bool isRefused() const final { return m_refusal.has_value(); }

protected:
    virtual void consume(const char *data, std::size_t size) = 0;
    virtual Answer end() = 0;
    virtual void dropped() {}

    template <typename Work> void guarded(Work work)
    {
        if (m_refusal)
            return;
        try {
            return work();
        } catch (const Refusal &refusal) {
            m_refusal = refused(refusal.status, refusal.what());
        } catch (const std::system_error &error) {
            m_refusal = refused(error.code() == std::errc::no_space_on_device ? 507 : 500, error.what());
        } catch (const std::exception &error) {
            m_refusal = refused(500, error.what());
        }
        dropped();
    }

private:
    std::optional<Answer> m_refusal;
};

class RawUpload : public CheckingSink {
public:
    RawUpload(StorageService &service, const HttpRequest &head, std::string jobId, std::string name)
        : m_service(service)
        , m_jobId(std::move(jobId))
        , m_name(std::move(name))
    {
        guarded([&] {
            service.addresses().checkRaw(head, m_jobId);
            checkFileName(m_name);
            const std::string *header = findHeader(head.headers, fileHeader);
            if (!header || *header != trimmed(m_name)) // HTTP trims a header's value
                throw Refusal(400, std::string("The header \"") + fileHeader +
                                       "\" must hold the file's name as in the path");
            m_size = numberIn(head, sizeHeader);
            requireSize(std::string("The header \"") + sizeHeader + '"', m_size, numberIn(head, "Content-Length"));
            m_writer.emplace(service.store().freshPath());
        });
    }

protected:
    void consume(const char *data, std::size_t size) override { m_writer->write(data, size); }

    Answer end() override
    {
        m_writer->commit();
        m_service.keep(m_jobId, m_name, m_writer->path());
        return {};
    }

    void dropped() override { m_writer.reset(); }

private:
    StorageService &m_service;
    std::string m_jobId;
    std::string m_name;
    long long m_size = 0;
    std::optional<FileWriter> m_writer;
};

/// A sink that collects the fields of a form.
class FormSink : public CheckingSink, protected MultipartEvents {
protected:
    void openForm(const HttpRequest &head)
    {
        const std::string *type = findHeader(head.headers, "Content-Type");
        m_form.emplace(Multipart::boundaryOf(type ? *type : ""), static_cast<MultipartEvents &>(*this));
    }

    void part(const std::string &name, bool isFile, const std::string &) override
    {
        m_field = name;
        if (isFile || !m_fields.emplace(name, "").second)
            throw Refusal(400, "The form's field \"" + name + "\" is a file, or there twice");
    }

    void data(const char *bytes, std::size_t size) override
    {
        std::string &value = m_fields[m_field];
        if (value.size() + size > maxField)
            throw Refusal(400, "The form's field \"" + m_field + "\" is too long");
        value.append(bytes, size);
    }

    void partEnd() override {}

    std::optional<Multipart> m_form;
    std::map<std::string, std::string> m_fields;

private:
    std::string m_field;
};

class FormUpload : public FormSink {
public:
    FormUpload(StorageService &service, const HttpRequest &head, std::string jobId)
        : m_service(service)
        , m_jobId(std::move(jobId))
    {
        guarded([&] {
            openForm(head);
            m_size = numberIn(head, sizeHeader);
            const auto query = queryOf(head.target);
            const auto named = query.find("size");
            if (named == query.end() || numberOf(named->second) != m_size)
                throw Refusal(400, std::string("\"size\" in the address and the header \"") + sizeHeader +
                                       "\" must be the same number");
        });
    }

protected:
    void consume(const char *data, std::size_t size) override { m_form->take(data, size); }

    Answer end() override
    {
        m_form->finish();
        if (!m_writer)
            throw Refusal(400, "The form holds no file");
        m_writer->commit();
        requireSize(std::string("The header \"") + sizeHeader + '"', m_size, m_writer->size());
        m_service.keep(m_jobId, m_name, m_writer->path());
        Answer answer;
        answer.response.status = 204;
        return answer;
    }

    void dropped() override { m_writer.reset(); }

private:
    void part(const std::string &name, bool isFile, const std::string &fileName) override
    {
        if (m_writer)
            throw Refusal(400, "The file must be the last part of the form");
        if (name != "file")
            return FormSink::part(name, isFile, fileName);
        if (!isFile)
            throw Refusal(400, "The form's part \"file\" has no file name");
        m_service.addresses().checkForm(m_jobId, m_fields);
        checkFileName(fileName);
        m_name = fileName;
        m_writer.emplace(m_service.store().freshPath());
    }

    void data(const char *bytes, std::size_t size) override
    {
        if (m_writer) {
            m_writer->write(bytes, size);
            if (m_writer->size() > m_size)
                throw Refusal(400, "The file is longer than the address says");
            return;
        }
        FormSink::data(bytes, size);
    }

    StorageService &m_service;
    std::string m_jobId;
    std::string m_name;
    long long m_size = 0;
    std::optional<FileWriter> m_writer;
};

class PieceRequest : public FormSink {
public:
    PieceRequest(StorageService &service, const HttpRequest &head, std::string jobId, std::string number)
        : m_service(service)
        , m_jobId(std::move(jobId))
        , m_number(std::move(number))
    {
        guarded([&] {
            if (head.method == "POST")
                return openForm(head);
            const std::string *signature = findHeader(head.headers, signatureHeader);
            m_fields = queryOf(head.target);
            m_signature = signature ? *signature : "";
            m_get = head;
        });
    }

protected:
    void consume(const char *data, std::size_t size) override
    {
        if (!m_form)
            throw Refusal(400, "The body must be empty");
        m_form->take(data, size);
    }

    Answer end() override
    {
        if (m_form) {
            m_form->finish();
            m_signature = m_fields["signature"];
            m_fields.erase("signature");
            if (m_fields.size() != 3)
                throw Refusal(400, "The form must hold \"from\", \"size\", \"expires\" and \"signature\"");
        }
        const Addresses::Piece piece = m_service.addresses().checkPiece(m_jobId, m_number, m_fields, m_signature);
        const StoredFile *file = m_service.store().find(m_jobId, numberOf(m_number));
        if (!file)
            throw Refusal(404, "The file was deleted or replaced");
        Answer answer;
        answer.response.contentType = rawContentType;
        const bool whole = piece.size < 0 || (piece.from == 0 && piece.size == file->plainSize);
        answer.response.source =
            whole ? storedBytes(file->path)
                  : encryptedRange(file->path, m_service.store().key(m_jobId), piece.from, piece.size);
        const std::string etag =
            '"' + file->hash.substr(0, 32) + '-' + std::to_string(piece.from) + '-' + std::to_string(piece.size) + '"';
        if (m_form)
            answer.response.headers.emplace_back("ETag", etag);
        else
            answerRange(m_get, etag, answer.response);
        return answer;
    }

private:
    StorageService &m_service;
    std::string m_jobId;
    std::string m_number;
    std::string m_signature;
    HttpRequest m_get; ///< of a GET: without body
};

} // namespace

StorageService::StorageService(Store &store, Addresses &addresses, std::function<std::int64_t()> now)
    : m_store(store)
    , m_addresses(addresses)
    , m_now(std::move(now))
{
}

std::unique_ptr<BodySink> StorageService::open(const HttpRequest &head)
{
    if (findHeader(head.headers, "Authorization"))
        return discarding(refused(400, "The storage must never see an Authorization header"));
    const auto way = segments(pathOf(head.target).substr(storagePath.size()));
    const auto fits = [&](const char *kind, std::size_t count) { return way[0] == kind && way.size() == count; };
    const auto allows = [&](const char *one, const char *other) { return head.method == one || head.method == other; };
    if (fits("raw", 3) && allows("PUT", "POST"))
        return std::make_unique<RawUpload>(*this, head, way[1], way[2]);
    if (fits("form", 2) && allows("POST", "POST"))
        return std::make_unique<FormUpload>(*this, head, way[1]);
    if (fits("piece", 3) && allows("GET", "POST"))
        return std::make_unique<PieceRequest>(*this, head, way[1], way[2]);
    if (fits("raw", 3) || fits("form", 2) || fits("piece", 3))
        return discarding(refused(405, "Not with " + head.method));
    return discarding(refused(404, "There is no such path in the storage"));
}

void StorageService::keep(const std::string &jobId, const std::string &name, const std::string &path)
{
    m_store.keep(jobId, name, path, m_now());
}

void checkFileName(const std::string &name)
{
    const bool fits = !name.empty() && name.size() <= maxName && name != "." && name != ".." &&
                      name.find('/') == std::string::npos && name.find('\0') == std::string::npos;
    if (!fits)
        throw Refusal(400, "A file cannot have the name \"" + name + '"');
}

bool isStoragePath(const std::string &target) { return target.compare(0, storagePath.size(), storagePath) == 0; }

} // namespace VelmoraPortal
