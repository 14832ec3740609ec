#pragma once

#include <QCoroTask>

#include <gtest/gtest.h>

#include <exception>
#include <optional>
#include <stdexcept>

namespace TaskResult {
// QCoro::waitFor never returns when the task throws, so the error is carried out as a value.
// (A plain variant would not do: the promise would take its exception_ptr for a throw of its own.)
template<typename T>
struct Outcome
{
    std::optional<T> value;
    std::exception_ptr error;
};

template<typename T>
QCoro::Task<Outcome<T>> capture(QCoro::Task<T> task)
{
    Outcome<T> outcome;
    try {
        outcome.value = co_await task;
    } catch (...) {
        outcome.error = std::current_exception();
    }
    co_return outcome;
}
} // namespace TaskResult

// Awaits task and returns its value, or rethrows what it threw.
template<typename T>
T waitForResult(QCoro::Task<T> task)
{
    TaskResult::Outcome<T> outcome = QCoro::waitFor(TaskResult::capture(std::move(task)));
    if (outcome.error) {
        std::rethrow_exception(outcome.error);
    }
    return std::move(*outcome.value);
}

// Awaits task, which must throw an Error, and returns that error; anything else fails the test.
template<typename Error, typename T>
Error failureOf(QCoro::Task<T> task)
{
    try {
        waitForResult(std::move(task));
    } catch (const Error &error) {
        return error;
    } catch (const std::exception &error) {
        ADD_FAILURE() << "raised another error: " << error.what();
        throw;
    }
    ADD_FAILURE() << "the call did not raise";
    throw std::runtime_error("no error");
}
