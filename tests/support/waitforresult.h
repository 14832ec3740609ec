#pragma once

#include <QCoroTask>

#include <gtest/gtest.h>

#include <exception>
#include <optional>
#include <stdexcept>

// QCoro::waitFor never returns when the task throws, so the error is carried out as a value.
// (A plain variant would not do: the promise would take its exception_ptr for a throw of its own.)
template<typename T>
struct TaskOutcome
{
    std::optional<T> value;
    std::exception_ptr error;
};

template<typename T>
QCoro::Task<TaskOutcome<T>> outcomeOf(QCoro::Task<T> task)
{
    TaskOutcome<T> outcome;
    try {
        outcome.value = co_await task;
    } catch (...) {
        outcome.error = std::current_exception();
    }
    co_return outcome;
}

template<typename T>
T waitForResult(QCoro::Task<T> task)
{
    TaskOutcome<T> outcome = QCoro::waitFor(outcomeOf(std::move(task)));
    if (outcome.error) {
        std::rethrow_exception(outcome.error);
    }
    return std::move(*outcome.value);
}

// Awaits task, which must throw an Error, and returns that error; another error fails the test.
template<typename Error, typename T>
Error failureOf(QCoro::Task<T> task)
{
    try {
        waitForResult(std::move(task));
    } catch (const Error &error) {
        return error;
    }
    ADD_FAILURE() << "the call did not raise";
    throw std::runtime_error("no error");
}
