#pragma once

#include <QCoroTask>
#include <QObject>

#include <functional>

// Starts a coroutine on the next turn of the context's event loop, after the caller has
// returned. Nobody awaits it, so it catches and reports its own failures; it never starts
// if the context is gone by then.
void startTask(QObject *context, std::function<QCoro::Task<>()> body);
