// Uploads: how bodies reach the handler, and what becomes of those that go wrong.

#include <map>

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
        const auto session = byThread.find(std::this_thread::get_id());
        if (finishStatus != 0) {
            return finishStatus;
        }
        if (session == byThread.end()) {
            return 400;
        }
        lastFile = session->second;
        byThread.erase(session);
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
        {makeUpload(server, form, makeFormPart("a.bin", "") + "--xyz--\r\n"), ""},
    };
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
         "BadRequest"},
    };
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

TEST_F(ServerUpload, ARefusedFirstChunkLeavesTheAnswerToTheFinishPhase) {
    sessions.refusedFrom = 0;
    sessions.finishStatus = 409;
    Reply reply = ask(server, makeUpload(server, attachment, "hello"));
    EXPECT_EQ(reply.status, 409);
    EXPECT_THAT(reply.body, HasSubstr("finish"));
    sessions.finishStatus = 200;
    reply = ask(server, makeUpload(server, attachment, "hello"));
    EXPECT_EQ(reply.status, 500);
    EXPECT_THAT(reply.body, HasSubstr("\"detail\":\"Upload failed\""));
}

TEST_F(ServerUpload, ARefusedLaterChunkFailsTheUploadWithoutAFinishPhase) {
    sessions.refusedFrom = 1;
    RawClient client(server.port());
    client.send(makeUpload(server, attachment, std::string(5'000'000, 'a')));
    const Reply reply = client.receive();
    EXPECT_EQ(reply.status, 500);
    EXPECT_THAT(reply.body, HasSubstr("\"title\":\"InternalServerError\""));
    EXPECT_THAT(reply.body, HasSubstr("\"detail\":\"Upload failed\""));
    EXPECT_EQ(sessions.finished, 0U);
    EXPECT_TRUE(client.isClosed());
}

TEST(ServerUploads, AnAbandonedUploadNeverEndsAsSomebodyElses) {
    KxNTamberWebApi::Limits limits;
    limits.uploadThreads = 2;
    TestHandler handler;
    Sessions sessions(handler);
    TestServer server(handler, limits);
    const auto finishEmpty = [&] { return ask(server, makeHead(server, "POST /api/v1/files")); };
    // Two clients hold both threads, and one of them goes in the middle of its upload.
    RawClient first(server.port());
    RawClient second(server.port());
    for (RawClient* client : {&first, &second}) {
        client->send(makeHead(server, "POST /api/v1/files", attachment + "Content-Length: 100\r\n") + "secret");
    }
    EXPECT_TRUE(waitFor([&] { return sessions.chunks == 2; }));
    first.reset();
    EXPECT_EQ(sessions.finished, 0U);
    // The thread that was let go may hold a session, and the other one is busy: nothing may be finished on it.
    EXPECT_TRUE(waitFor([&] {
        const Reply reply = finishEmpty();
        return reply.status == 400 && reply.body.find("No file was uploaded") != std::string::npos;
    }));
    EXPECT_EQ(sessions.finished, 0U);
    sessions.refusedFrom = 0;
    EXPECT_THAT(ask(server, makeUpload(server, attachment, "x")).body, HasSubstr("No file was uploaded"));
    sessions.refusedFrom = UINT64_MAX;
    // An upload of its own replaces what was left there, and the thread is clean again.
    EXPECT_EQ(ask(server, makeUpload(server, attachment, "mine")).status, 201);
    EXPECT_EQ(sessions.lastFile, "mine");
    EXPECT_THAT(finishEmpty().body, HasSubstr("finish"));
    EXPECT_EQ(sessions.lastFile, "mine");
    second.reset();
}

TEST(ServerUploads, AnUploadThatFindsNoThreadIsRefusedAfterAWhile) {
    KxNTamberWebApi::Limits limits;
    limits.uploadThreads = 1;
    limits.uploadWait = 100ms;
    limits.sweep = 20ms;
    TestHandler handler;
    Sessions sessions(handler);
    TestServer server(handler, limits);
    RawClient holder(server.port());
    holder.send(makeHead(server, "POST /api/v1/files", attachment + "Content-Length: 5\r\n"));
    std::this_thread::sleep_for(50ms);
    EXPECT_EQ(ask(server, makeUpload(server, attachment, "other")).status, 503);
    holder.send("first");
    EXPECT_EQ(holder.receive().status, 201);
    EXPECT_EQ(sessions.lastFile, "first");
}

}  // namespace
}  // namespace KxNWebApiTest
