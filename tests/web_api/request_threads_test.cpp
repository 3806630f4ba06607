#include "platform/web_api/threads/request_threads.h"

#include "tests/support.h"

using namespace KxNTests;

#include <boost/asio/post.hpp>
#include <future>
#include <new>

namespace {

using KxNTamberWebApi::RequestThreads;

TEST(RequestThreads, GoOnAfterAnEventThatThrows) {
    boost::asio::io_context context;
    RequestThreads threads(context, 2, 4);
    threads.start();
    for (int i = 0; i < 10; ++i) {
        boost::asio::post(context, [] { throw std::bad_alloc(); });
    }
    std::promise<void> served;
    boost::asio::post(context, [&served] { served.set_value(); });
    EXPECT_EQ(served.get_future().wait_for(std::chrono::seconds(20)), std::future_status::ready);
    threads.stop();
}

TEST(RequestThreads, CountAlsoTheSecondOperationOfAThreadThatWasHeldUp) {
    boost::asio::io_context context;
    RequestThreads threads(context, 2, 2);
    threads.start();
    std::promise<std::pair<bool, bool>> mayBegin;
    boost::asio::post(context, [&] {
        {
            const RequestThreads::Operation first(threads);
            waitFor([&] { return !threads.mayBegin(); });  // the monitor gives the lead to the other thread
        }
        const bool between = threads.mayBegin();
        const RequestThreads::Operation second(threads);
        mayBegin.set_value({between, threads.mayBegin()});
    });
    EXPECT_EQ(mayBegin.get_future().get(), std::pair(true, false));
    threads.stop();
}

}  // namespace
