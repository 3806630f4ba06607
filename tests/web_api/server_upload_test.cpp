// Uploads: how bodies reach the handler, and what becomes of those that go wrong.

#include <map>
#include <tuple>

#include "platform/web_api/threads/upload_threads.h"
#include "server_fixture.h"

namespace KxNWebApiTest {
namespace {

/// Keeps what was uploaded, by the thread that carried it, as a handler with sessions does.
class Sessions {
public:
    explicit Sessions(TestHandler& handler) {
        handler.takeChunk = [this](std::string_view data, std::uint64_t offset, const std::string& fileName) {
            return take(data, offset, fileName);
        };
        handler.finishUpload = [this] { return finish(); };
    }

    std::string lastFile;  // of the last finish phase that found a session
    std::atomic<std::size_t> chunks = 0;
    std::atomic<std::size_t> finished = 0;
    std::atomic<std::uint64_t> refusedFrom = UINT64_MAX;  // chunks at or behind this offset are refused
    std::atomic<int> finishStatus = 0;

private:
    bool take(std::string_view data, std::uint64_t offset, const std::string& fileName) {
        std::lock_guard lock(mutex);
        ++chunks;
        if (fileName.empty() || offset >= refusedFrom) {
            return false;
        }
        std::string& session = byThread[std::this_thread::get_id()];
        if (offset == 0) {
            session.clear();
        }
        EXPECT_EQ(offset, session.size());
        session += data;
        return true;
    }

    int finish() {
        std::lock_guard lock(mutex);
        ++finished;
        if (finishStatus != 0) {
            return finishStatus;
        }
        const auto session = byThread.extract(std::this_thread::get_id());
        if (!session) {
            return 400;
        }
        lastFile = session.mapped();
        return 201;
    }

    std::mutex mutex;
    std::map<std::thread::id, std::string> byThread;
};

const std::string attachment = "Content-Disposition: attachment; filename=\"a.bin\"\r\n";
const std::string form = "Content-Type: multipart/form-data; boundary=xyz\r\n";

std::string makeUpload(const TestServer& server, const std::string& fields, const std::string& body) {
    return makeHead(server, "POST /api/v1/files", fields + "Content-Length: " + std::to_string(body.size()) + "\r\n") +
           body;
}

std::string makeFormPart(const std::string& fileName, const std::string& content) {
    return "--xyz\r\nContent-Disposition: form-data; name=\"file\"; filename=\"" + fileName + "\"\r\n\r\n" + content +
           "\r\n";
}

class ServerUpload : public ::testing::Test {
protected:
    TestHandler handler;
    Sessions sessions{handler};
    TestServer server{handler};
};

TEST_F(ServerUpload, EachFormOfBodyArrivesWhole) {
    const std::string inChunks = makeHead(server, "POST /api/v1/files", attachment + "Transfer-Encoding: chunked\r\n");
    const std::string large(300'001, 'q');
    const std::pair<std::string, std::string> cases[] = {
        {makeUpload(server, attachment, ""), ""},
        {inChunks + "0\r\n\r\n", ""},
        {inChunks + "493e1;x\r\n" + large + "\r\n1\r\n!\r\n0\r\n\r\n", large + "!"},
        {makeUpload(server, form, makeFormPart("a.bin", large) + "--xyz--\r\n"), large},
        {makeUpload(server, form, makeFormPart("a.bin", "") + "--xyz--\r\n"), ""}};
    RawClient client(server.port());
    for (const auto& [request, file] : cases) {
        SCOPED_TRACE(request.substr(0, 200));
        sessions.lastFile = "none";
        client.send(request);
        const Reply reply = client.receive();
        EXPECT_EQ(reply.status, 201);
        EXPECT_TRUE(sessions.lastFile == file);
        EXPECT_EQ(reply.body, R"({"fileName":"a.bin","size":)" + std::to_string(file.size()) + "}");
    }
}

TEST_F(ServerUpload, WhatIsNoProperUploadIsRefused) {
    const std::pair<std::string, std::string> cases[] = {
        {makeHead(server, "POST /api/v1/files", "Content-Length: 0\r\n"), "finish"},  // no file, not even an empty one
        {makeUpload(server, "Content-Type: multipart/form-data\r\n", "x"), "boundary"},
        {makeUpload(server, form, makeFormPart("a", "b")), "without its closing boundary"},
        {makeHead(server, "POST /api/v1/files", attachment + "Transfer-Encoding: chunked\r\n") + "1\r\na\r\nzz\r\n",
         "BadRequest"}};
    for (const auto& [request, words] : cases) {
        const Reply reply = ask(server, request);
        EXPECT_EQ(reply.status, 400);
        EXPECT_THAT(reply.body, HasSubstr(words));
    }
}

TEST_F(ServerUpload, TheClientIsToldToGoOnOnceItMay) {
    RawClient client(server.port());
    client.send(makeHead(server, "POST /api/v1/files", attachment + "Expect: 100-continue\r\nContent-Length: 5\r\n"));
    EXPECT_EQ(client.receive().status, 100);
    client.send("hello");
    EXPECT_EQ(client.receive().status, 201);
    client.send(makeHead(server, "POST /api/v1/nothing", "Expect: 100-continue\r\nContent-Length: 5\r\n"));
    EXPECT_EQ(client.receive().status, 404);
}

TEST_F(ServerUpload, ARefusedFirstChunkLeavesTheAnswerToTheFinishPhaseAndALaterOneFailsWithoutIt) {
    const std::string failed = "\"title\":\"InternalServerError\",\"status\":500,\"detail\":\"Upload failed\"";
    sessions.refusedFrom = 0;
    for (const auto& [status, told] : {std::pair(409, "finish"s), std::pair(200, failed)}) {
        sessions.finishStatus = status;
        EXPECT_THAT(ask(server, makeUpload(server, attachment, "hello")).body, HasSubstr(told));
    }
    sessions.refusedFrom = 1;
    RawClient client(server.port());
    client.send(makeUpload(server, attachment, std::string(5'000'000, 'a')));
    EXPECT_THAT(client.receive().body, HasSubstr(failed));
    EXPECT_EQ(sessions.finished, 2U);
    EXPECT_TRUE(client.isClosed());
}

TEST(ServerUploads, AnAbandonedUploadNeverEndsAsSomebodyElses) {
    // With two threads there is always one on which nothing was abandoned, and the operation's own text is answered.
    for (const auto& [threads, words] : {std::pair(1U, "No file was uploaded"), std::pair(2U, "finish")}) {
        SCOPED_TRACE(words);
        TestHandler handler;
        Sessions sessions(handler);
        TestServer server(handler, {.uploadThreads = threads, .uploadBeginning = 4});
        for (std::size_t i = 1; i <= 3; ++i) {
            RawClient goes(server.port());
            goes.send(makeHead(server, "POST /api/v1/files", attachment + "Content-Length: 100\r\n") + "secret");
            EXPECT_TRUE(waitFor([&] { return sessions.chunks >= 2 * i - 1; }));
            goes.reset();
        }
        sessions.lastFile = "none";
        EXPECT_THAT(ask(server, makeHead(server, "POST /api/v1/files")).body, HasSubstr(words));
        sessions.refusedFrom = 0;
        sessions.finishStatus = 400;
        EXPECT_THAT(ask(server, makeUpload(server, attachment, "x")).body, HasSubstr(words));
        sessions.refusedFrom = UINT64_MAX;
        sessions.finishStatus = 0;
        EXPECT_EQ(sessions.lastFile, "none");
        // An upload of its own replaces what was left there, and the thread is clean again.
        EXPECT_EQ(ask(server, makeUpload(server, attachment, "mine")).status, 201);
        EXPECT_EQ(sessions.lastFile, "mine");
        EXPECT_THAT(ask(server, makeHead(server, "POST /api/v1/files")).body, HasSubstr("finish"));
    }
}

TEST(ServerUploads, WhoSendsNoFileYetHoldsNoThreadAndWhoDawdlesIsSentAway) {
    const Limits limits{
        .uploadThreads = 2, .uploadBeginning = 1000, .uploadRate = 100, .uploadRateWindow = 2s, .sweep = 50ms};
    TestHandler handler;
    Sessions sessions(handler);
    TestServer server(handler, limits);
    const std::string openForm =
        "--xyz\r\nContent-Disposition: form-data; name=\"note\"\r\n\r\n" + std::string(5000, 'n');
    const std::string beginnings[] = {
        makeHead(server, "POST /api/v1/files", attachment + "Content-Length: 5000\r\n") + std::string(50, 'x'),
        makeHead(server, "POST /api/v1/files", attachment + "Transfer-Encoding: chunked\r\n") + "1\r\nx\r\n",
        makeHead(server, "POST /api/v1/files", form + "Content-Length: 90000\r\n") + openForm};
    std::vector<std::unique_ptr<RawClient>> dawdlers;
    for (const std::string& beginning : beginnings) {
        dawdlers.push_back(std::make_unique<RawClient>(server.port()));
        dawdlers.back()->send(beginning);
    }
    std::thread trickle([&] {  // more often than the limit without any byte, and still too slow
        for (int i = 0; i < 30 && dawdlers[0]->send(" "); ++i) {
            std::this_thread::sleep_for(100ms);
        }
    });
    EXPECT_EQ(ask(server, makeUpload(server, attachment, "quick")).status, 201);
    EXPECT_EQ(sessions.chunks, 1U) << "the others have no thread";
    for (const auto& dawdler : dawdlers) {
        EXPECT_EQ(dawdler->receive().status, 408);
    }
    trickle.join();
}

TEST(ServerUploads, AnUploadThatFindsNoThreadOrMemoryIsRefusedAfterAWhileAndNotToldToGoOn) {
    // One identity has half of the memory for beginnings.
    const Limits limits{
        .uploadThreads = 1, .uploadWait = 100ms, .uploadBeginning = 4, .uploadBeginnings = 8, .sweep = 20ms};
    TestHandler handler;
    Sessions sessions(handler);
    TestServer server(handler, limits);
    const std::string nineBytes = makeHead(server, "POST /api/v1/files", attachment + "Content-Length: 9\r\n");
    RawClient hasThread(server.port());
    hasThread.send(nineBytes + "first");
    ASSERT_TRUE(waitFor([&] { return sessions.chunks >= 1; }));
    EXPECT_EQ(ask(server, makeUpload(server, attachment, "other")).status, 503);
    RawClient hasMemory(server.port());
    hasMemory.send(nineBytes + "se");
    const std::string asks = "Expect: 100-continue\r\nContent-Length: 9\r\n";
    EXPECT_TRUE(
        waitFor([&] { return ask(server, makeHead(server, "POST /api/v1/files", attachment + asks)).status == 503; }));
    hasThread.send("last");
    EXPECT_EQ(hasThread.receive().status, 201);
    EXPECT_EQ(sessions.lastFile, "firstlast");
    hasMemory.send("condly!");
    EXPECT_EQ(hasMemory.receive().status, 201);
    EXPECT_EQ(sessions.lastFile, "secondly!");
}

TEST(UploadThreads, OneIdentityHasHalfOfThemAndWhatLastsLeavesTheLastQuarter) {
    ::KxNTamberWebApi::UploadThreads threads(8, 0ms);
    std::mutex gate;
    std::unique_lock closed(gate);
    std::atomic<int> carried = 0;
    std::atomic<int> refused = 0;
    const auto submit = [&](const std::string& identity, bool lasts) {
        threads.submit({identity, lasts, false,
                        [&](bool) {
                            std::lock_guard wait(gate);
                            return false;
                        },
                        [&](bool wasCarried) { ++(wasCarried ? carried : refused); }});
    };
    const std::tuple<const char*, bool, int> rows[] = {{"one", false, 4},  {"one", true, 4},    {"two", true, 6},
                                                       {"three", true, 6}, {"three", false, 8}, {"four", false, 8}};
    int running = 0;
    for (const auto& [identity, lasts, most] : rows) {
        SCOPED_TRACE(identity);
        for (int i = 0; i < 5; ++i) {
            submit(identity, lasts);
        }
        threads.expire(INT64_MAX);
        const int before = running;
        running = most;
        EXPECT_EQ(refused.exchange(0), 5 - (running - before));
    }
    closed.unlock();
    EXPECT_TRUE(waitFor([&] { return carried == 8; }));
    submit("one", true);  // the one who has its answer finds a thread free
    EXPECT_TRUE(waitFor([&] { return carried == 9; }));
}

}  // namespace
}  // namespace KxNWebApiTest
