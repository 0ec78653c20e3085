#include "Measure.h"

#include "Rows.h"

#include <QEventLoop>
#include <QFile>

#include <algorithm>
#include <cstdio>

namespace Bench {

Pauses::Pauses()
{
    m_timer.setTimerType(Qt::PreciseTimer);
    QObject::connect(&m_timer, &QTimer::timeout, [this] {
        m_times.push_back(static_cast<double>(m_clock.nsecsElapsed()) * 1e-6);
        m_clock.start();
    });
    m_clock.start();
    m_timer.start(1);
}

void Pauses::stop()
{
    m_timer.stop();
    std::sort(m_times.begin(), m_times.end());
    require(!m_times.empty(), "the loop did not turn");
}

double Pauses::longest()
{
    stop();
    return m_times.back();
}

double Pauses::within999()
{
    stop();
    return m_times[m_times.size() * 999 / 1000];
}

long memory(const char *what)
{
    QFile file(QStringLiteral("/proc/self/status"));
    require(file.open(QIODevice::ReadOnly), "cannot read the memory's size");
    for (const QByteArray &line : file.readAll().split('\n'))
        if (line.startsWith(what))
            return line.mid(static_cast<int>(qstrlen(what))).trimmed().split(' ')[0].toLong();
    fail("the kernel does not tell " + std::string(what));
}

void forgetPeak()
{
    QFile file(QStringLiteral("/proc/self/clear_refs"));
    require(file.open(QIODevice::WriteOnly) && file.write("5") == 1, "cannot reset the memory's peak");
}

void turnFor(int milliseconds)
{
    QEventLoop loop;
    QTimer::singleShot(milliseconds, &loop, &QEventLoop::quit);
    loop.exec();
}

} // namespace Bench
