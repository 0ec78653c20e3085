#pragma once

#include <QMetaObject>
#include <QObject>

#include <functional>
#include <tuple>
#include <type_traits>
#include <utility>

namespace Velmora {

/// Runs `call` from the event loop of `context`'s thread: outside whatever signal is being emitted
/// now, and not at all when `context` dies first. `call` may destroy `context`.
template <class Call> void later(QObject *context, Call &&call)
{
    QMetaObject::invokeMethod(context, std::forward<Call>(call), Qt::QueuedConnection);
}

/// `later` for a host callback, which may be empty, with copies of its arguments.
template <class... Parameters, class... Values>
void callLater(QObject *context, const std::function<void(Parameters...)> &callback, Values &&...values)
{
    if (!callback)
        return;
    later(context, [callback, arguments = std::tuple<std::decay_t<Parameters>...>(std::forward<Values>(values)...)] {
        std::apply(callback, arguments);
    });
}

} // namespace Velmora
