#include <atomic>
#include <boost/asio/dispatch.hpp>
#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/signal_set.hpp>
#include <boost/asio/use_future.hpp>
#include <csignal>
#include <exception>
#include <map>
#include <memory>
#include <string>
#include <thread>

#include "KxErrorManager.h"
#include "KxRtos.h"
#include "platform/common/blocked_signals.h"

namespace KxNRtosAbstraction {

namespace {

namespace asio = boost::asio;

std::atomic<void (*)()> terminationObserver{nullptr};

/// Calls the registered handlers, one at a time, on a thread of its own. Everything else happens there, too, so that a
/// handler that is removed is not running.
class Delivery {
public:
    static Delivery& getInstance() {
        static Delivery& delivery = *new Delivery;
        return delivery;
    }

    void install(int signalNumber, SignalHandler handler, KxCErrorListPool& pool) {
        onThread([&] {
            forget(signalNumber);
            auto added = std::make_shared<Registration>(loop, handler, pool);
            added->signals.add(signalNumber);
            // Whom it reaches goes on with what the system did for it.
            struct sigaction action {};
            ::sigaction(signalNumber, nullptr, &action);
            action.sa_flags |= SA_RESTART;
            ::sigaction(signalNumber, &action, nullptr);
            await(registrations[signalNumber] = std::move(added));
        });
    }

    void remove(int signalNumber) {
        onThread([&] {
            forget(signalNumber);
            asio::signal_set(loop).add(signalNumber);  // its end restores the default action, whoever has set another
        });
    }

private:
    struct Registration {
        Registration(asio::io_context& loop, SignalHandler called, KxCErrorListPool& handlersPool)
            : signals(loop), handler(called), pool(handlersPool) {}

        asio::signal_set signals;
        SignalHandler handler;
        KxCErrorListPool& pool;
    };

    Delivery() {
        const KxNCommon::BlockedSignals blocked;
        std::thread([this] { loop.run(); }).detach();
    }

    template <typename Action>
    void onThread(Action action) {
        asio::dispatch(loop, asio::use_future(action)).get();
    }

    void forget(int signalNumber) {
        if (const auto former = registrations.extract(signalNumber)) {
            former.mapped()->signals.cancel();  // the wait keeps the registration
            former.mapped()->signals.clear();   // its handler, which may be the caller, keeps it longer
        }
    }

    void await(const std::shared_ptr<Registration>& registration) {
        registration->signals.async_wait([this, registration](const boost::system::error_code& error, int number) {
            if (error) {
                return;
            }
            const auto observer = terminationObserver.load();
            if (observer != nullptr && (number == SIGTERM || number == SIGINT)) {
                observer();
            }
            registration->handler(registration->pool, number);
            if (const auto found = registrations.find(number);
                found != registrations.end() && found->second == registration) {
                await(registration);
            }
        });
    }

    asio::io_context loop;
    asio::executor_work_guard<asio::io_context::executor_type> work{loop.get_executor()};
    std::map<int, std::shared_ptr<Registration>> registrations;
};

/// Does something for a signal; its failure goes to `pool`.
template <typename Action>
void attempt(KxCErrorListPool& pool, int signalNumber, const char* what, Action action) {
    if (signalNumber <= 0 || signalNumber >= NSIG) {
        pool.addError(0, std::string(what) + " failed: there is no signal " + std::to_string(signalNumber));
        return;
    }
    try {
        action(Delivery::getInstance());
    } catch (const boost::system::system_error& failure) {
        pool.addError(0, std::string(what) + " for signal " + std::to_string(signalNumber) +
                             " failed: " + failure.code().message());
    } catch (const std::exception& failure) {
        pool.addError(0, std::string("Signals cannot be delivered: ") + failure.what());
    }
}

}  // namespace

void installSignalHandler(KxCErrorListPool& pool, int signalNumber, SignalHandler handler) {
    attempt(pool, signalNumber, "Installing the handler",
            [&](Delivery& delivery) { delivery.install(signalNumber, handler, pool); });
}

void observeTermination(void (*observer)()) {
    terminationObserver.store(observer);
}

void removeSignalHandler(KxCErrorListPool& pool, int signalNumber) {
    attempt(pool, signalNumber, "Restoring the default action",
            [&](Delivery& delivery) { delivery.remove(signalNumber); });
}

}  // namespace KxNRtosAbstraction
