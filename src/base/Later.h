#pragma once

#include <QMetaObject>
#include <QObject>

#include <functional>
#include <tuple>
#include <type_traits>
#include <utility>

namespace Velmora {

/// Counts on each thread what the library has done outside the calls of its functions.
unsigned int stepsOnThisThread();
void noteStep();

/// Runs `call` from the event loop of `context`'s thread, outside every signal that is being emitted now. `call` is
/// dropped when `context` is destroyed first. `call` may destroy `context`.
template <class Call> void later(QObject *context, Call &&call)
{
    auto step = [call = std::decay_t<Call>(std::forward<Call>(call))] {
        noteStep();
        call();
    };
    QMetaObject::invokeMethod(context, std::move(step), Qt::QueuedConnection);
}

/// Runs a callback of the application, which may be empty, as `later` does, with copies of its arguments.
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
