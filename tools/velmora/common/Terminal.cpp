#include "common/Terminal.h"

#include <QCoreApplication>
#include <QFile>
#include <QSocketNotifier>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>

#include <fcntl.h>
#include <langinfo.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

namespace Velmora::Cli {

namespace {

int signalPipe[2] = {-1, -1};
constexpr int caughtSignals[] = {SIGINT, SIGTERM, SIGHUP};

extern "C" void forwardSignal(int)
{
    const int saved = errno;
    const char mark = 1;
    [[maybe_unused]] const auto written = ::write(signalPipe[1], &mark, 1);
    errno = saved;
}

int descriptorOf(Terminal::Stream stream) { return stream == Terminal::Stream::Output ? STDOUT_FILENO : STDERR_FILENO; }

class OpenTerminal {
public:
    explicit OpenTerminal(Terminal::Echo echo)
        : m_descriptor(::open("/dev/tty", O_RDWR | O_CLOEXEC))
    {
        if (m_descriptor < 0 || echo == Terminal::Echo::On || ::tcgetattr(m_descriptor, &m_saved) != 0)
            return;
        termios silent = m_saved;
        silent.c_lflag &= ~tcflag_t(ECHO);
        silent.c_lflag |= ECHONL;
        silent.c_cc[VSUSP] = _POSIX_VDISABLE; // a stopped process would leave the shell without echo
        silent.c_cc[VQUIT] = _POSIX_VDISABLE;
        m_changed = ::tcsetattr(m_descriptor, TCSAFLUSH, &silent) == 0;
    }
    ~OpenTerminal()
    {
        if (m_changed)
            ::tcsetattr(m_descriptor, TCSAFLUSH, &m_saved);
        if (m_descriptor >= 0)
            ::close(m_descriptor);
    }
    OpenTerminal(const OpenTerminal &) = delete;
    OpenTerminal &operator=(const OpenTerminal &) = delete;

    int descriptor() const { return m_descriptor; }

private:
    int m_descriptor;
    termios m_saved{};
    bool m_changed = false;
};

} // namespace

namespace Terminal {

std::vector<std::string> arguments(int argc, char *argv[]) { return {argv + 1, argv + argc}; }

std::string environment(const char *name)
{
    const char *value = std::getenv(name);
    return value ? value : "";
}

bool isTerminal(Stream stream) { return ::isatty(descriptorOf(stream)) == 1 && qgetenv("TERM") != "dumb"; }

Size size(Stream stream)
{
    Size result;
    winsize window{};
    if (::ioctl(descriptorOf(stream), TIOCGWINSZ, &window) == 0 && window.ws_col > 0 && window.ws_row > 0) {
        result.columns = window.ws_col;
        result.rows = window.ws_row;
    }
    return result;
}

bool supportsUtf8() { return QByteArray(::nl_langinfo(CODESET)).toUpper() == "UTF-8"; }

void write(Stream stream, const QString &text)
{
    std::FILE *file = stream == Stream::Output ? stdout : stderr;
    const QByteArray bytes = text.toUtf8();
    std::fwrite(bytes.constData(), 1, size_t(bytes.size()), file);
    std::fflush(file);
}

bool openOutput(QFile &file) { return file.open(stdout, QIODevice::WriteOnly); }

std::optional<QString> ask(const QString &question, Echo echo)
{
    Interrupt &interrupt = Interrupt::instance();
    const OpenTerminal terminal(echo);
    if (terminal.descriptor() < 0)
        return std::nullopt;
    const QByteArray prompt = question.toUtf8();
    if (::write(terminal.descriptor(), prompt.constData(), size_t(prompt.size())) < 0)
        return std::nullopt;

    QByteArray answer;
    for (;;) {
        pollfd inputs[] = {{terminal.descriptor(), POLLIN, 0}, {signalPipe[0], POLLIN, 0}};
        if (::poll(inputs, 2, -1) < 0 && errno != EINTR)
            return std::nullopt;
        if (inputs[1].revents != 0) {
            interrupt.receive();
            return std::nullopt;
        }
        if (inputs[0].revents == 0)
            continue;
        char piece[256];
        const auto count = ::read(terminal.descriptor(), piece, sizeof piece);
        if (count <= 0)
            return std::nullopt;
        answer.append(piece, int(count));
        const int end = answer.indexOf('\n');
        if (end >= 0)
            return QString::fromLocal8Bit(answer.left(end));
    }
}

int openExclusively(const QString &path, QString &problem)
{
    const int file = ::open(QFile::encodeName(path).constData(), O_RDWR | O_CREAT | O_CLOEXEC, 0666);
    if (file < 0) {
        problem = qt_error_string(errno);
        return -1;
    }
    // A file system without locks goes without.
    if (::flock(file, LOCK_EX | LOCK_NB) == 0 || errno != EWOULDBLOCK)
        return file;
    ::close(file);
    return -1;
}

bool sync(int descriptor) { return ::fsync(descriptor) == 0; }

} // namespace Terminal

class Interrupt::Source : public QSocketNotifier {
public:
    using QSocketNotifier::QSocketNotifier;
};

Interrupt::Interrupt()
    : QObject(QCoreApplication::instance())
{
    if (::pipe2(signalPipe, O_CLOEXEC | O_NONBLOCK) != 0)
        return;
    m_source = std::make_unique<Source>(signalPipe[0], QSocketNotifier::Read);
    connect(m_source.get(), &QSocketNotifier::activated, this, [this] { receive(); });
    struct sigaction action {};
    action.sa_handler = forwardSignal;
    action.sa_flags = SA_RESTART | static_cast<int>(SA_RESETHAND);
    for (const int number : caughtSignals) {
        struct sigaction before {};
        // What the caller ignores (nohup) stays ignored.
        if (::sigaction(number, nullptr, &before) == 0 && before.sa_handler != SIG_IGN)
            ::sigaction(number, &action, nullptr);
    }
}

Interrupt::~Interrupt()
{
    for (const int number : caughtSignals)
        std::signal(number, SIG_DFL);
    m_source.reset();
    for (int &descriptor : signalPipe) {
        ::close(descriptor);
        descriptor = -1;
    }
}

void Interrupt::receive()
{
    char marks[16];
    if (::read(signalPipe[0], marks, sizeof marks) <= 0)
        return;
    m_raised = true;
    Q_EMIT raised();
}

} // namespace Velmora::Cli
