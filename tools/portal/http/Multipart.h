#pragma once

#include <cstddef>
#include <string>

namespace VelmoraPortal {

/// Receives the parts of a form while its body arrives. After a member threw, the parser cannot be used any more.
class MultipartEvents {
public:
    virtual ~MultipartEvents() = default;
    /// A part begins. `fileName` counts only with `isFile`.
    virtual void part(const std::string &name, bool isFile, const std::string &fileName) = 0;
    virtual void data(const char *bytes, std::size_t size) = 0;
    virtual void partEnd() = 0;
};

/*
 * The body of a multipart/form-data request, parsed in bounded memory. Throws a refusal (400) at the
 * first error.
 *
 *   Body ("--boundary" seen) --> AfterDelimiter --line end--> Head --empty line--> Body
 *                                      \--"--"--> End
 * The parser begins in Body, before the first delimiter; other bytes are an error there.
 */
class Multipart {
public:
    /// The boundary in a request's content type. Throws a refusal when the type is no form's or has no boundary.
    static std::string boundaryOf(const std::string &contentType);

    Multipart(const std::string &boundary, MultipartEvents &events);
    void take(const char *bytes, std::size_t size);
    /// The body is complete. Throws a refusal when the closing delimiter is missing.
    void finish() const;

private:
    enum class State { Body, AfterDelimiter, Head, End };
    bool step();
    bool takeBody();
    bool takeDelimiterEnd();
    bool takeHead();

    std::string m_delimiter;
    MultipartEvents &m_events;
    State m_state = State::Body;
    bool m_inPart = false;
    int m_parts = 0;
    std::string m_rest;
};

} // namespace VelmoraPortal
