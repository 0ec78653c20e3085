#include "common/Terminal.h"

#include <QCoreApplication>

#include <cstdio>

#include <fcntl.h>
#include <io.h>
#include <windows.h>

namespace Velmora::Cli {

namespace {

constexpr DWORD interruptDelay = 1000; // milliseconds to let the handler's thread run

HANDLE consoleOf(Terminal::Stream stream)
{
    return ::GetStdHandle(stream == Terminal::Stream::Output ? STD_OUTPUT_HANDLE : STD_ERROR_HANDLE);
}

/// The console that the program was started from, whatever its streams are connected to.
class OpenConsole {
public:
    explicit OpenConsole(const wchar_t *name)
        : m_handle(::CreateFileW(name, GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                 OPEN_EXISTING, 0, nullptr))
        , m_open(::GetConsoleMode(m_handle, &m_mode) != 0)
    {
    }
    ~OpenConsole()
    {
        if (m_open)
            ::SetConsoleMode(m_handle, m_mode);
        if (m_handle != INVALID_HANDLE_VALUE)
            ::CloseHandle(m_handle);
    }
    OpenConsole(const OpenConsole &) = delete;
    OpenConsole &operator=(const OpenConsole &) = delete;

    bool isOpen() const { return m_open; }
    void hideInput() { ::SetConsoleMode(m_handle, m_mode & ~DWORD(ENABLE_ECHO_INPUT)); }
    bool write(const QString &text) const
    {
        DWORD written = 0;
        return ::WriteConsoleW(m_handle, text.utf16(), DWORD(text.size()), &written, nullptr) != 0;
    }
    /// A line with its end; empty at the end of input and when interrupted.
    QString readLine() const
    {
        QString line;
        wchar_t piece[256];
        DWORD count = 0;
        while (!line.endsWith(QLatin1Char('\n')) && ::ReadConsoleW(m_handle, piece, 256, &count, nullptr) && count > 0)
            line += QString::fromWCharArray(piece, int(count));
        return line.endsWith(QLatin1Char('\n')) ? line : QString();
    }

private:
    HANDLE m_handle;
    DWORD m_mode = 0;
    bool m_open;
};

} // namespace

/// Set by the handler, which the system runs on a thread of its own.
class Interrupt::Source {
public:
    explicit Source(Interrupt *interrupt)
        : m_interrupt(interrupt)
        , m_signalled(::CreateEventW(nullptr, TRUE, FALSE, nullptr))
    {
        current = this;
        ::SetConsoleCtrlHandler(handle, TRUE);
    }
    ~Source()
    {
        ::SetConsoleCtrlHandler(handle, FALSE);
        ::CloseHandle(m_signalled);
    }
    Source(const Source &) = delete;
    Source &operator=(const Source &) = delete;

    bool isSignalled(DWORD patience = 0) const { return ::WaitForSingleObject(m_signalled, patience) == WAIT_OBJECT_0; }

private:
    static BOOL WINAPI handle(DWORD kind)
    {
        if ((kind != CTRL_C_EVENT && kind != CTRL_BREAK_EVENT) || current->isSignalled())
            return FALSE; // ends the process
        ::SetEvent(current->m_signalled);
        Interrupt *const interrupt = current->m_interrupt;
        QMetaObject::invokeMethod(
            interrupt, [interrupt] { interrupt->receive(); }, Qt::QueuedConnection);
        return TRUE;
    }

    static inline Source *current = nullptr;
    Interrupt *m_interrupt;
    HANDLE m_signalled;
};

namespace Terminal {

std::vector<std::string> arguments(int, char *[])
{
    std::vector<std::string> result;
    for (const QString &argument : QCoreApplication::arguments().mid(1))
        result.push_back(argument.toStdString());
    return result;
}

std::string environment(const char *name) { return qEnvironmentVariable(name).toStdString(); }

bool isTerminal(Stream stream)
{
    DWORD mode = 0;
    return ::GetConsoleMode(consoleOf(stream), &mode) != 0 &&
           ::SetConsoleMode(consoleOf(stream), mode | ENABLE_VIRTUAL_TERMINAL_PROCESSING) != 0;
}

Size size(Stream stream)
{
    Size result;
    CONSOLE_SCREEN_BUFFER_INFO info = {};
    if (::GetConsoleScreenBufferInfo(consoleOf(stream), &info) != 0) {
        result.columns = info.srWindow.Right - info.srWindow.Left + 1;
        result.rows = info.srWindow.Bottom - info.srWindow.Top + 1;
    }
    return result;
}

bool supportsUtf8() { return true; } // to a console as UTF-16, see write()

void write(Stream stream, const QString &text)
{
    DWORD mode = 0;
    DWORD written = 0;
    if (::GetConsoleMode(consoleOf(stream), &mode) != 0) {
        ::WriteConsoleW(consoleOf(stream), text.utf16(), DWORD(text.size()), &written, nullptr);
        return;
    }
    std::FILE *file = stream == Stream::Output ? stdout : stderr;
    const QByteArray bytes = text.toUtf8();
    ::_setmode(::_fileno(file), _O_BINARY); // the same bytes as on any other system
    std::fwrite(bytes.constData(), 1, size_t(bytes.size()), file);
    std::fflush(file);
}

bool openOutput(QFile &file)
{
    ::_setmode(::_fileno(stdout), _O_BINARY);
    return file.open(stdout, QIODevice::WriteOnly);
}

std::optional<QString> ask(const QString &question, Echo echo)
{
    Interrupt &interrupt = Interrupt::instance();
    OpenConsole input(L"CONIN$");
    const OpenConsole output(L"CONOUT$");
    if (!input.isOpen() || !output.isOpen() || !output.write(question))
        return std::nullopt;
    if (echo == Echo::Off)
        input.hideInput();
    QString line = input.readLine();
    if (echo == Echo::Off)
        output.write(QStringLiteral("\n"));
    if (line.isEmpty()) {
        if (interrupt.m_source->isSignalled(interruptDelay))
            interrupt.receive();
        return std::nullopt;
    }
    line.chop(line.endsWith(QLatin1String("\r\n")) ? 2 : 1);
    return line;
}

int openExclusively(const QString &path, QString &problem)
{
    const HANDLE file = ::CreateFileW(reinterpret_cast<const wchar_t *>(path.utf16()), GENERIC_READ | GENERIC_WRITE,
                                      FILE_SHARE_READ, nullptr, OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file != INVALID_HANDLE_VALUE)
        return ::_open_osfhandle(reinterpret_cast<intptr_t>(file), _O_RDWR | _O_BINARY);
    if (::GetLastError() != ERROR_SHARING_VIOLATION)
        problem = qt_error_string(int(::GetLastError()));
    return -1;
}

bool sync(int descriptor) { return ::_commit(descriptor) == 0; }

} // namespace Terminal

Interrupt::Interrupt()
    : QObject(QCoreApplication::instance())
    , m_source(std::make_unique<Source>(this))
{
}

Interrupt::~Interrupt() = default;

void Interrupt::receive()
{
    if (m_raised)
        return;
    m_raised = true;
    Q_EMIT raised();
}

} // namespace Velmora::Cli
