#include <fcntl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>

#include <array>
#include <atomic>
#include <csignal>
#include <cstddef>
#include <future>
#include <optional>

#include "KxErrorManager.h"
#include "KxRtos.h"
#include "platform/common/unique_fd.h"
#include "platform/rtos/instance_lock.h"
#include "tests/support.h"

using namespace KxNTests;

namespace {

using namespace KxNRtosAbstraction;

TEST(InstanceLock, HoldsUntilItsProcessDiesAndNotLongerInAChildAndNeedsItsFile) {
    const std::string path = testing::TempDir() + "kx-" + std::to_string(::getpid()) + ".lock";
    std::array<int, 2> ready;
    ASSERT_EQ(::pipe2(ready.data(), O_CLOEXEC), 0);
    const pid_t holder = ::fork();
    if (holder == 0) {
        const KxNCommon::UniqueFd lock = lockInstance(path, 0);
        const pid_t child = ::fork();
        if (child == 0) {
            ::execl("/bin/sleep", "sleep", "20", nullptr);
            ::_exit(1);
        }
        std::this_thread::sleep_for(100ms);  // until the child's descriptors are its own
        static_cast<void>(!::write(ready[1], &child, sizeof(child)));
        ::pause();
        ::_exit(lock ? 0 : 1);
    }
    pid_t child = -1;
    ASSERT_EQ(::read(ready[0], &child, sizeof(child)), static_cast<ssize_t>(sizeof(child)));
    const auto started = Clock::now();
    EXPECT_FALSE(lockInstance(path, 200));
    EXPECT_GE(Clock::now() - started, 200ms);
    EXPECT_FALSE(lockInstance(path, 0));
    EXPECT_LT(Clock::now() - started, 10s);
    auto waiting = std::async(std::launch::async, [&] { return static_cast<bool>(lockInstance(path, 10'000)); });
    ::kill(holder, SIGKILL);
    ::waitpid(holder, nullptr, 0);
    EXPECT_TRUE(waiting.get());
    ::kill(child, SIGKILL);
    ::unlink(path.c_str());
    testing::internal::CaptureStderr();
    EXPECT_FALSE(lockInstance("/nonexistent/directory/lock", 0));
    EXPECT_THAT(testing::internal::GetCapturedStderr(),
                HasSubstr("ERROR Korvex Container Service: The instance lock /nonexistent/directory/lock cannot be "
                          "opened: No such file or directory"));
}

std::atomic<int> deliveries{0};
std::atomic<bool> mayReturn{false};
std::atomic<std::thread::id> deliveryThread;

void countDelivery(KxCErrorListPool& pool, int signalNumber) {
    deliveryThread = std::this_thread::get_id();
    ++deliveries;
    while (!mayReturn) {
        std::this_thread::sleep_for(1ms);
    }
    pool.addError(0, "signal " + std::to_string(signalNumber));
}

bool isDefaultAction(int signalNumber) {
    struct sigaction action {};
    ::sigaction(signalNumber, nullptr, &action);
    return action.sa_handler == SIG_DFL;
}

TEST(Signals, AHandlerRunsOnAThreadOfThePlatformAndRemovalWaitsForIt) {
    KxCErrorListPool pool;
    installSignalHandler(pool, SIGUSR1, countDelivery);
    installSignalHandler(pool, SIGUSR2, countDelivery);
    ::raise(SIGUSR1);
    ASSERT_TRUE(waitFor([] { return deliveries == 1; }));
    EXPECT_NE(deliveryThread.load(), std::this_thread::get_id());
    auto removal = std::async(std::launch::async, [&] { removeSignalHandler(pool, SIGUSR1); });
    EXPECT_EQ(removal.wait_for(100ms), std::future_status::timeout);
    mayReturn = true;
    removal.get();
    EXPECT_TRUE(isDefaultAction(SIGUSR1));
    EXPECT_EQ(pool.getErrorCount(), 1u);
    errno = 77;
    ::raise(SIGUSR2);
    EXPECT_EQ(errno, 77);
    EXPECT_TRUE(waitFor([&] { return pool.getErrorCount() == 2; }));
    removeSignalHandler(pool, SIGUSR2);
    EXPECT_EQ(pool.takeErrors().back().detail, "signal " + std::to_string(SIGUSR2));
}

TEST(Signals, TheObserverSeesWhatEndsTheProcess) {
    static std::atomic<int> observed{0};
    static std::atomic<int> handled{0};
    KxCErrorListPool pool;
    for (const int number : {SIGTERM, SIGINT, SIGUSR1}) {
        installSignalHandler(pool, number, [](KxCErrorListPool&, int) { ++handled; });
    }
    const auto raiseAll = [] {
        const int before = handled;
        for (const int number : {SIGTERM, SIGINT, SIGUSR1}) {
            ::raise(number);
        }
        return waitFor([&] { return handled == before + 3; });
    };
    EXPECT_TRUE(raiseAll());
    observeTermination([] { ++observed; });
    EXPECT_TRUE(raiseAll());
    observeTermination(nullptr);
    EXPECT_EQ(observed, 2);
    for (const int number : {SIGTERM, SIGINT, SIGUSR1}) {
        removeSignalHandler(pool, number);
    }
}

TEST(Signals, AHandlerMayRemoveItself) {
    KxCErrorListPool pool;
    installSignalHandler(pool, SIGUSR1,
                         [](KxCErrorListPool& handlersPool, int number) { removeSignalHandler(handlersPool, number); });
    ::raise(SIGUSR1);
    EXPECT_TRUE(waitFor([] { return isDefaultAction(SIGUSR1); }));
    removeSignalHandler(pool, SIGUSR1);  // after which `pool` may go
    EXPECT_EQ(pool.getErrorCount(), 0u);
}

TEST(Signals, WhatCannotBeCaughtIsAnError) {
    for (const int number : {0, -1, NSIG, 1000, SIGKILL}) {
        KxCErrorListPool pool;
        installSignalHandler(pool, number, countDelivery);
        removeSignalHandler(pool, number);
        const std::string reason = number == SIGKILL ? " for signal 9 failed: Invalid argument"
                                                     : " failed: there is no signal " + std::to_string(number);
        const auto errors = pool.takeErrors();
        ASSERT_EQ(errors.size(), 2u);
        EXPECT_EQ(errors[0].detail, "Installing the handler" + reason);
        EXPECT_EQ(errors[1].detail, "Restoring the default action" + reason);
    }
}

/// What setServiceInitialized logs when NOTIFY_SOCKET holds `address`.
std::string logOfNotification(const std::string& address) {
    testing::internal::CaptureStderr();
    ::setenv("NOTIFY_SOCKET", address.c_str(), 1);
    setServiceInitialized();
    return testing::internal::GetCapturedStderr();
}

/// A socket at `address` as a service manager has it.
KxNCommon::UniqueFd listenAt(const std::string& address) {
    KxNCommon::UniqueFd socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    sockaddr_un name{};
    name.sun_family = AF_UNIX;
    address.copy(name.sun_path, sizeof(name.sun_path) - 1);
    name.sun_path[0] = address[0] == '@' ? '\0' : '/';
    const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + address.size());
    EXPECT_EQ(::bind(socket.get(), reinterpret_cast<sockaddr*>(&name), size), 0);
    return socket;
}

TEST(ServiceInitialized, ReachesAServiceManagerAtAPathAndAtAnAbstractAddress) {
    for (const std::string& address :
         {"@kx-notify-" + std::to_string(::getpid()), testing::TempDir() + "kx-notify-" + std::to_string(::getpid())}) {
        const KxNCommon::UniqueFd socket = listenAt(address);
        EXPECT_EQ(logOfNotification(address), "");
        ::unlink(address.c_str());
        std::array<char, 100> text{};
        EXPECT_EQ(::recv(socket.get(), text.data(), text.size(), MSG_DONTWAIT), 7);
        EXPECT_STREQ(text.data(), "READY=1");
    }
}

TEST(ServiceInitialized, WithoutAServiceManagerNothingIsSaidAndAnUnreachableOneIsAWarning) {
    const std::string none = "NOTIFY_SOCKET names no Unix socket";
    const std::string absent = "No such file or directory";
    for (const auto& [address, reason] : {std::pair("/nonexistent/socket"s, absent),
                                          {"vsock:1", none},
                                          {std::string(107, '/'), "Connection refused"},
                                          {std::string(108, '/'), none}}) {
        EXPECT_THAT(logOfNotification(address),
                    EndsWith("WARNING Korvex Container Service: The service manager was not told that the service is "
                             "ready (" +
                             address + "): " + reason + "\n"));
    }
    EXPECT_EQ(logOfNotification(""), "");
    ::unsetenv("NOTIFY_SOCKET");
    setServiceInitialized();
}

TEST(Watchdog, IsFedAsLongAsAllLifeSignsAreGiven) {
    const std::string address = "@kx-watchdog-" + std::to_string(::getpid());
    const KxNCommon::UniqueFd manager = listenAt(address);
    const auto heardOf = [&](std::string_view wanted) {
        std::array<char, 100> text{};
        const ssize_t size = ::recv(manager.get(), text.data(), text.size(), MSG_DONTWAIT);
        return std::string_view(text.data(), static_cast<std::size_t>(std::max<ssize_t>(size, 0))) == wanted;
    };
    std::atomic<bool> isHanging{false};
    std::optional<KxCLifeSign> sign;
    sign.emplace("patient", [&](const KxCLifeSign::Answer& answer) { isHanging ? static_cast<void>(0) : answer(); });
    const KxCLifeSign other("other", [](const KxCLifeSign::Answer& answer) { answer(); });
    testing::internal::CaptureStderr();
    ::setenv("NOTIFY_SOCKET", address.c_str(), 1);
    ::setenv("WATCHDOG_USEC", "300000", 1);
    setServiceInitialized();
    EXPECT_TRUE(heardOf("READY=1"));
    const auto hears = [&] { return heardOf("WATCHDOG=1"); };
    EXPECT_TRUE(waitFor(hears));
    EXPECT_TRUE(waitFor(hears));
    isHanging = true;
    EXPECT_TRUE(waitFor([&] {
        std::this_thread::sleep_for(1s);
        const bool isSilent = !hears();
        while (hears()) {
        }
        return isSilent;
    }));
    sign.reset();  // what has ended need not answer
    EXPECT_TRUE(waitFor(hears));
    ::unsetenv("NOTIFY_SOCKET");
    EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("ERROR Korvex Container Service: The patient hangs"));
}

TEST(Mutex, ATimedLockGivesUpInTimeAndTakesAFreeOneAtOnce) {
    KxCMutex mutex("test");
    KxCMutexLock lock(mutex);
    std::thread([&] {
        const auto started = Clock::now();
        EXPECT_FALSE(mutex.lock(0));
        EXPECT_FALSE(mutex.lock(50));
        EXPECT_GE(Clock::now() - started, 50ms);
    }).join();
    auto waiting = std::async(std::launch::async, [&] {
        EXPECT_TRUE(mutex.lock(-1));
        mutex.unlock();
    });
    EXPECT_EQ(waiting.wait_for(50ms), std::future_status::timeout);
    lock.unlock();
    lock.unlock();
    waiting.get();
    EXPECT_TRUE(mutex.lock(0));
    mutex.unlock();
}

}  // namespace
