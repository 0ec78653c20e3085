/// @file Terminal.h
/// Access to the operating system's terminal, arguments, signals and file locks. Terminal.cpp is for POSIX,
/// TerminalWindows.cpp for Windows; Interrupt.cpp has what both share.
#ifndef VELMORA_CLI_TERMINAL_H
#define VELMORA_CLI_TERMINAL_H

#include <QFile>
#include <QObject>
#include <QString>

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace Velmora::Cli {

namespace Terminal {

/// The program's arguments without its own name. Text here and below is UTF-8 where file names are.
std::vector<std::string> arguments(int argc, char *argv[]);
/// An environment variable; empty when it is not set.
std::string environment(const char *name);

enum class Stream { Output, Error };
enum class Echo { On, Off };

struct Size {
    int columns = 80;
    int rows = 24;
};

/// True when the stream is a terminal that can move its cursor.
bool isTerminal(Stream stream);
/// Queried on each call, because the window may be resized.
Size size(Stream stream);
/// True when more than ASCII can be shown.
bool supportsUtf8();
void write(Stream stream, const QString &text);
/// Opens standard output for bytes that are no text. @return false when it is closed
bool openOutput(QFile &file);

/// Asks on the controlling terminal, whatever standard input and output are connected to. The
/// terminal's settings are always restored.
/// @return nothing when there is no terminal, at its end of input and when interrupted.
std::optional<QString> ask(const QString &question, Echo echo);

/// Opens a file, made if it is missing, that this process alone writes until it closes the descriptor. The lock dies
/// with the process, so nobody mistakes a file that was left behind for one in use.
/// @return negative on failure; `problem` is then why, or empty when another process has the file
int openExclusively(const QString &path, QString &problem);
/// Makes durable what was written. @return false on failure
bool sync(int descriptor);

} // namespace Terminal

/// Ctrl-C and requests to terminate, delivered through the event loop. From the first call of
/// `instance` the first signal is caught; a second one ends the process at once. Needs an
/// application object, which owns it.
class Interrupt : public QObject {
    Q_OBJECT
public:
    static Interrupt &instance();
    bool isRaised() const { return m_raised; }

Q_SIGNALS:
    void raised();

private:
    Interrupt();
    ~Interrupt() override;
    void receive();

    class Source;

    std::unique_ptr<Source> m_source;
    bool m_raised = false;

    friend std::optional<QString> Terminal::ask(const QString &, Terminal::Echo);
};

} // namespace Velmora::Cli

#endif
