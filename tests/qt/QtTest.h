#pragma once

#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QEventLoop>
#include <QTimer>
#include <chrono>
#include <exception>
#include <filesystem>
#include <functional>
#include <iterator>
#include <optional>
#include <stdexcept>
#include <thread>
#include <utility>

#include "base/TaskScope.h"
#include "platform/linux/posix/EventLoop.h"
#include "platform/linux/qt/QtLoop.h"
#include "support/TurnLoop.h"

namespace tessivox::testing {

/// The main loop inside Qt's, as in the program with windows.
struct QtTest : ::testing::Test {
    static QCoreApplication& application() {
        static int count = 1;
        static char name[] = "test";
        static char* arguments[] = {name, nullptr};
        static QCoreApplication one(count, arguments);
        return one;
    }
    QCoreApplication& qt = application();
    posix::EventLoop loop;
    int turns = 0;
    qt::QtLoop host{{loop.fd(), [this] { return loop.nextDeadline(); }, [this] { return loop.now(); },
                     [this] {
                         ++turns;
                         loop.dispatch();
                     }}};

    /// Qt's network thread is still at its end when Qt takes it for finished. What OpenSSL keeps for it goes only then,
    /// and would be a leak to a process that ends sooner.
    static void TearDownTestSuite() {
        const auto hasOthers = [] {
            return std::distance(std::filesystem::directory_iterator("/proc/self/task"), {}) > 1;
        };
        const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(1);
        while (hasOthers() && std::chrono::steady_clock::now() < limit) std::this_thread::yield();
    }

    /// Runs Qt's loop until the condition holds, which is looked at every 5 ms; false if it does not within the limit.
    bool runUntil(const std::function<bool()>& condition, base::Duration limit = std::chrono::seconds(20)) {
        const auto end = loop.now() + limit;
        QEventLoop inner;
        QTimer look;
        QObject::connect(&look, &QTimer::timeout, &inner, [&] {
            if (condition() || loop.now() >= end) inner.quit();
        });
        look.start(5);
        inner.exec();
        return condition();
    }

    /// Runs a task to its end; throws what it throws.
    template <typename T>
    T finish(base::Task<T> task) {
        std::optional<T> result;
        std::exception_ptr error;
        base::TaskScope scope(loop);
        scope.start(keepResult(std::move(task), result, error));
        if (!runUntil([&] { return scope.isIdle(); })) throw std::runtime_error("the task did not finish in time");
        if (error) std::rethrow_exception(error);
        return std::move(*result);
    }
};

}  // namespace tessivox::testing
