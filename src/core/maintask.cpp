#include "core/maintask.h"

#include <QLoggingCategory>
#include <QTimer>

#include <exception>

Q_LOGGING_CATEGORY(lcTasks, "tamlo.tasks")

namespace {
// The body is held by this frame, so a lambda's captures outlive its own coroutine.
QCoro::Task<> runGuarded(std::function<QCoro::Task<>()> body)
{
    try {
        co_await body();
    } catch (const std::exception &error) {
        qCWarning(lcTasks) << "A background task failed:" << error.what();
    } catch (...) {
        qCWarning(lcTasks) << "A background task failed with an unknown error";
    }
}
} // namespace

void startTask(QObject *context, std::function<QCoro::Task<>()> body)
{
    QTimer::singleShot(0, context, [body = std::move(body)]() mutable { runGuarded(std::move(body)); });
}
