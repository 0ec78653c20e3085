/// @file Terminal.h
/// All that touches the operating system's terminal, arguments and signals. Terminal.cpp is written for
/// POSIX, TerminalWindows.cpp for Windows.
#ifndef VELMORA_CLI_TERMINAL_H
#define VELMORA_CLI_TERMINAL_H

#include <QObject>
#include <QString>

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace Velmora::Cli {

namespace Terminal {

/// The program's arguments without its own name; texts here and below are UTF-8 where files' names are.
std::vector<std::string> arguments(int argc, char *argv[]);
/// A variable of the environment; empty when it is not set.
std::string environment(const char *name);

enum class Stream { Output, Error };
enum class Echo { On, Off };

struct Size {
    int columns = 80;
    int rows = 24;
};

/// True when the stream is a terminal that can move its cursor.
bool isTerminal(Stream stream);
/// Asked afresh each time, so that a resized window is seen.
Size size(Stream stream);
/// True when more than ASCII can be shown.
bool speaksUtf8();
void write(Stream stream, const QString &text);

/// Asks on the controlling terminal, whatever standard input and output are connected to. The
/// terminal's settings are restored however the question ends.
/// @return nothing when there is no terminal, at its end of input and when interrupted.
std::optional<QString> ask(const QString &question, Echo echo);

} // namespace Terminal

/// Ctrl-C and requests to terminate, delivered through the event loop. From the first call of
/// `instance` the first signal is caught; a second one ends the process at once. Needs an
/// application object and lives as long.
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
