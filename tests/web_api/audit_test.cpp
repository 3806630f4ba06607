// The kept audit record: nothing breaks its chain but somebody's hand, and that is found.

#include <sys/stat.h>

#include <future>
#include <numeric>

#include "KxJson.h"
#include "platform/web_api/audit/audit_file.h"
#include "platform/web_api/audit/audit_keeper.h"
#include "platform/web_api/audit/refusal_summary.h"
#include "tests/support.h"

using namespace KxNTests;
using namespace KxNTamberWebApi;

namespace {

constexpr std::size_t SMALL = 4000;  // some ten entries a file

AuditRecord change(int number) {
    const std::string name = "web\n" + std::to_string(number);
    return {"127.0.0.1", "token", "administrator", "DELETE", "/containers/{name}", name, 204, 12};
}

std::vector<AuditRecord> changes(int first, int count) {
    std::vector<AuditRecord> records;
    for (int i = 0; i < count; ++i) {
        records.push_back(change(first + i));
    }
    return records;
}

AuditVerdict verify(const std::string& path) {
    std::vector<std::string> files = {path};
    if (std::filesystem::exists(olderAuditFile(path))) {
        files.push_back(olderAuditFile(path));
    }
    return verifyAuditFiles(files);
}

void keepAndWait(AuditKeeper& keeper, const AuditRecord& record) {
    std::promise<void> kept;
    keeper.keep(record, [&] { kept.set_value(); });
    kept.get_future().wait();
}

class AuditFileTest : public testing::Test {
protected:
    const TemporaryDirectory directory;
    const std::string path = directory.path("audit.log");
};

TEST_F(AuditFileTest, TheChainGoesOnOverRestartsAndRotationAndOneOlderFileStays) {
    for (int round = 0; round < 10; ++round) {
        AuditFile(path, SMALL).append(changes(5 * round, 5));
    }
    EXPECT_EQ(directory.fileNames(), (std::vector<std::string>{"audit.log", "audit.log.1"}));
    EXPECT_LE(std::filesystem::file_size(path), SMALL);
    AuditVerdict verdict = verify(path);
    EXPECT_EQ(verdict.fault, "");
    EXPECT_EQ(verdict.last, 50u);
    EXPECT_GT(verdict.first, 1u);
    std::filesystem::remove(path);  // by hand, or between the two steps of a rotation
    const std::uint64_t left = verify(olderAuditFile(path)).last;
    AuditFile(path, SMALL).append(changes(0, 1));
    verdict = verify(path);
    EXPECT_EQ(verdict.fault, "");
    EXPECT_EQ(verdict.last, left + 1);
    struct stat status {};
    ASSERT_EQ(::stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0600u);
}

TEST_F(AuditFileTest, AnEntryHoldsWhatItIsToHold) {
    AuditRecord record = change(7);
    record.name = "a\xFF\"";
    record.time = *KxNCommon::parseTime("2026-11-24T09:30:00.5+01:00");
    AuditFile(path).append({&record, 1});
    EXPECT_EQ(readFile(path), R"({"seq":1,"time":"2026-11-24T08:30:00.500Z","peer":"127.0.0.1","identity":"token",)"
                              R"("role":"administrator","method":"DELETE","route":"/containers/{name}","name":"a)"
                              "\xEF\xBF\xBD"
                              R"(\"","status":204,"milliseconds":12,"previous":")" +
                                  std::string(64, '0') + "\"}\n");
}

TEST_F(AuditFileTest, ATamperedRecordIsNamedByFileAndLine) {
    AuditFile(path).append(changes(0, 9));
    const std::string whole = readFile(path);
    std::vector<std::string> lines;
    std::istringstream text(whole);
    for (std::string line; std::getline(text, line);) {
        lines.push_back(line + "\n");
    }
    const std::tuple<const char*, std::function<void(std::vector<std::string>&)>, const char*> rows[] = {
        {"a word changed", [](auto& all) { all[3].replace(all[3].find("DELETE"), 6, "GET"); }, "audit.log:5: "},
        {"a line removed", [](auto& all) { all.erase(all.begin() + 4); }, "audit.log:5: entry 6 where 5"},
        {"two lines swapped", [](auto& all) { std::swap(all[1], all[2]); }, "audit.log:2: entry 3 where 2"},
        {"another beginning", [](auto& all) { all[0].replace(all[0].rfind("00\""), 1, "1"); }, "audit.log:1: "},
        {"a line that is none", [](auto& all) { all[5] = "x\n"; }, "audit.log:6: this is no entry"}};
    for (const auto& [fault, tamper, told] : rows) {
        auto changed = lines;
        tamper(changed);
        writeFile(path, std::accumulate(changed.begin(), changed.end(), ""s));
        EXPECT_THAT(verify(path).fault, HasSubstr(told)) << fault;
    }
    lines.erase(lines.begin(), lines.begin() + 2);
    writeFile(path, std::accumulate(lines.begin(), lines.end(), ""s));
    EXPECT_EQ(verify(path).fault, "");
    EXPECT_THAT(verify(path).notes, ElementsAre(HasSubstr("begin with entry 3")));
}

TEST_F(AuditFileTest, WhatIsNoRecordIsSetAsideWhole) {
    writeFile(path, std::string(100'000, 'x') + "\n");
    AuditFile(path).append(changes(0, 1));
    EXPECT_EQ(verify(path).last, 1u);
    EXPECT_EQ(std::filesystem::file_size(path + ".torn"), 100'001u);
    const std::string whole = readFile(path);
    for (const std::string& torn : {whole.substr(0, 40), std::string(40, '\0'), std::string(1, '{')}) {
        writeFile(path, whole + torn);  // as a power cut may leave it
        AuditFile again(path);
        again.open();
        EXPECT_EQ(again.last().seq, 1u);
        EXPECT_EQ(readFile(path + ".torn"), torn);
        again.append(changes(1, 1));
        EXPECT_EQ(verify(path).fault, "");
        EXPECT_EQ(verify(path).last, 2u);
    }
}

TEST_F(AuditFileTest, RecordsOfManyThreadsAreOnTheDiskWhenTheyAreToldSo) {
    AuditKeeper keeper(path);
    onThreads(4, [&](int thread) {
        for (int round = 0; round < 25; ++round) {
            keepAndWait(keeper, change(100 * thread + round));
            EXPECT_THAT(readFile(path), HasSubstr("web\\n" + std::to_string(100 * thread + round) + "\""));
        }
    });
    EXPECT_EQ(verify(path).entries, 100u);
    EXPECT_EQ(getAuditState().last, 100u);
    const auto answer = KxNJson::json::parse(readAuditEntries(90, 5));
    ASSERT_EQ(answer["entries"].size(), 5u);
    EXPECT_EQ(answer["entries"][0]["seq"], 91);
    EXPECT_EQ(answer["last"], 100);
    EXPECT_EQ(KxNJson::json::parse(readAuditEntries(98, 5))["entries"].size(), 2u);
}

TEST_F(AuditFileTest, WhatCannotBeWrittenIsCountedAndTheNextIsWritten) {
    writeFile(directory.path("place/file"), "");
    const std::string inTheWay = directory.path("place/audit.log");
    std::filesystem::create_directory(inTheWay);
    AuditKeeper keeper(inTheWay);
    keepAndWait(keeper, change(1));
    EXPECT_EQ(keeper.state().lost, 1u);
    EXPECT_THAT(keeper.state().problem, AllOf(HasSubstr(inTheWay), HasSubstr("cannot be opened")));
    std::filesystem::remove(inTheWay);
    keepAndWait(keeper, change(1));
    EXPECT_EQ(keeper.state().problem, "");
    EXPECT_EQ(verify(inTheWay).entries, 1u);
}

TEST(RefusalSummaryTest, BeyondTenASecondRefusalsAreSummedUp) {
    RefusalSummary summary;
    std::uint64_t alone = 0;
    std::uint64_t sums = 0;
    std::uint64_t summed = 0;
    for (std::int64_t now = 1000; now < 601'000; now += 10) {  // a hundred a second for ten minutes
        alone += summary.isToldAlone("10.0.0.1", 401, now) ? 1 : 0;
        for (const auto& sum : summary.takeDue(now)) {
            ++sums;
            summed += sum.refusals;
        }
        EXPECT_LE(alone, now < 2000 ? 10u : alone);
    }
    EXPECT_TRUE(summary.isToldAlone("10.0.0.2", 401, 601'000)) << "another address is not held back";
    for (const auto& sum : summary.takeDue(700'000)) {
        ++sums;
        summed += sum.refusals;
    }
    EXPECT_EQ(alone + summed, 60'000u);
    EXPECT_LE(sums, 17u);
    EXPECT_LE(alone, 170u);
}

}  // namespace
