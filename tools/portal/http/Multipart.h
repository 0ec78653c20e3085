#pragma once

#include <cstddef>
#include <string>

namespace VelmoraPortal {

/// What a form's body holds, told while it arrives. Members may throw; the parser is done for then.
class MultipartEvents {
public:
    virtual ~MultipartEvents() = default;
    /// A part begins. `fileName` is only looked at when `isFile`.
    virtual void part(const std::string &name, bool isFile, const std::string &fileName) = 0;
    virtual void data(const char *bytes, std::size_t size) = 0;
    virtual void partEnd() = 0;
};

/*
 * The body of a multipart/form-data request, parsed in bounded memory. Throws a refusal (400) at the
 * first thing that is not as it should be.
 *
 *   Body ("--boundary" seen) --> AfterDelimiter --line end--> Head --empty line--> Body
 *                                      \--"--"--> End
 * The parser begins in Body, in front of the first delimiter, where nothing but the delimiter may stand.
 */
class Multipart {
public:
    /// The boundary in a request's content type; a refusal when it is no form's or names none.
    static std::string boundaryOf(const std::string &contentType);

    Multipart(const std::string &boundary, MultipartEvents &events);
    void take(const char *bytes, std::size_t size);
    /// The body is over: a refusal unless the closing delimiter has come.
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
