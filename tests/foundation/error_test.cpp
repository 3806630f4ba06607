

#include "KxErrorManager.h"
#include "KxMessageManager.h"
#include "tests/support.h"

using namespace KxNTests;

namespace {

// Opens the client for a scope and gives what reached the log meanwhile.
class OpenClient {
public:
    OpenClient() {
        testing::internal::CaptureStderr();
        KxCMessageManagerClient::getInstance()->init(pool);
    }
    std::string close() {
        KxCMessageManagerClient::getInstance()->flushMessageBuffer(pool, 1000);
        KxCMessageManagerClient::getInstance()->closeClient();
        EXPECT_EQ(pool.getErrorCount(), 0u);
        return testing::internal::GetCapturedStderr();
    }

private:
    KxCErrorListPool pool;
};

TEST(ErrorListPool, CountsEveryErrorAndTakingThemOutDoesNotLowerTheCount) {
    KxCErrorListPool pool;
    std::atomic<std::size_t> taken{0};
    onThreads(4, [&](int) {
        for (int n = 0; n < 500; ++n) {
            pool.addError(0, "x");
        }
        taken += pool.takeErrors().size();
    });
    EXPECT_EQ(taken, 2000u);
    EXPECT_EQ(pool.getErrorCount(), 2000u);
}

TEST(ErrorManager, SendsEachErrorOnceWithItsMessageAndTheProgramsName) {
    const KxResText texts[] = {{KX_MESSAGE_PROGRAM_NAME, "Test Program"}, {17, "The disk is full"}, {0, nullptr}};
    KxCErrorManager::_registerMessages(texts);
    KxCErrorManager& manager = *KxCErrorManager::getSingleton();
    KxCErrorListPool pool;
    pool.addError(17, "/mnt: No space left on device");
    pool.addError(17, "");
    pool.addError(99, "no such message");
    OpenClient client;
    manager.sendErrorList(pool, 0);
    manager.sendErrorList(pool, 0);
    const std::string log = client.close();
    KxCErrorManager::_unregisterMessages(texts);
    EXPECT_THAT(log, HasSubstr("ERROR Test Program: The disk is full: /mnt: No space left on device\n"));
    EXPECT_THAT(log, HasSubstr("ERROR Test Program: The disk is full\n"));
    EXPECT_THAT(log, EndsWith("ERROR Test Program: no such message\n"));
    EXPECT_EQ(std::count(log.begin(), log.end(), '\n'), 3);
    EXPECT_EQ(pool.getErrorCount(), 3u);
    EXPECT_EQ(KxCErrorManager::findMessage(17), "");
}

TEST(ErrorManager, AnErrorOfTheMasterListIsSeenAtOnceAndNotAgain) {
    KxCErrorManager& manager = *KxCErrorManager::getSingleton();
    OpenClient whileAdding;
    manager.getMasterErrorList().addError(0, "the port is in use");
    EXPECT_THAT(whileAdding.close(), HasSubstr("ERROR Korvex Container Service: the port is in use\n"));
    OpenClient later;
    manager.sendErrorList(manager.getMasterErrorList(), 0);
    EXPECT_EQ(later.close(), "");
    EXPECT_EQ(manager.getMasterErrorList().getErrorCount(), 1u);
}

TEST(MessageManager, AClosedClientKeepsTheNewest256Messages) {
    for (int i = 0; i < 300; ++i) {
        KxCMessageManagerClient::getInstance()->sendMessage(4, "kept message " + std::to_string(i) + ".");
    }
    OpenClient client;
    const std::string log = client.close();
    EXPECT_EQ(std::count(log.begin(), log.end(), '\n'), 256);
    EXPECT_THAT(log, Not(HasSubstr("kept message 43.")));
    EXPECT_THAT(log, EndsWith("kept message 299.\n"));
}

}  // namespace
