#include <sys/stat.h>

#include <functional>
#include <optional>

#include "platform/container_runtime/logs/entry_text.h"
#include "platform/container_runtime/logs/file/file_reader.h"
#include "platform/container_runtime/logs/watch/log_watch.h"
#include "tests/support.h"

using namespace KxNTests;
using namespace KxNContainer;

namespace {

const std::string ID(64, 'a');

/// An entry as conmon(8) writes it, `second` seconds behind the minute.
std::string entry(const char* words, const std::string& text, int second = 0) {
    return "2026-11-24T08:14:" + std::string(second < 10 ? "0" : "") + std::to_string(second) + ".775685414+00:00 " +
           words + " " + text + "\n";
}

LogTime at(int second) {
    return *parseLogTime("2026-11-24T08:14:" + std::to_string(10 + second) + "Z") - 10'000'000'000;
}

/// All that `reader` gives until it waits or ends, with "[GAP n]" for a gap of n bytes and "[GAP]" for one of unknown
/// size.
std::string readAll(LogReader& reader, const LogRange& range = {}, LogStep::Kind* last = nullptr) {
    LogFilter filter(range);
    EntryText entries(range.hasTimestamps);
    std::string text;
    while (true) {
        LogStep step = reader.next();
        if (step.kind == LogStep::Kind::entry) {
            if (filter.take(step.entry)) {
                entries.append(step.entry, text);
            }
        } else if (step.kind == LogStep::Kind::gap) {
            text += step.gap.bytes ? "[GAP " + std::to_string(*step.gap.bytes) + "]" : "[GAP]";
        } else {
            entries.finish(text);
            if (last != nullptr) {
                *last = step.kind;
            }
            return text;
        }
    }
}

class LogReaderTest : public testing::Test {
protected:
    void write(const std::string& text) { writeFile(path, text); }
    void append(const std::string& text) { std::ofstream(path, std::ios::app | std::ios::binary) << text; }

    /// As the driver does it: nobody has the old file then but who holds it open.
    void rotate(const std::string& text) {
        writeFile(path + ".tmp", text);
        std::filesystem::rename(path + ".tmp", path);
    }

    std::string readEnded(const LogRange& range = {}) {
        FileReader reader(ID, path, nullptr, true, range, "");
        return readAll(reader, range);
    }

    std::unique_ptr<FileReader> follow(const std::string& cursor = "") {
        log = watch.follow(ID, path);
        if (log->run().number == 0) {
            log->beginRun(false);
        }
        return std::make_unique<FileReader>(ID, path, log, false, LogRange(), cursor);
    }

    /// What `reader` gives until that ends with `end`.
    std::string readUntil(FileReader& reader, const std::string& end) {
        const auto deadline = Clock::now() + 20s;
        std::string text;
        while (!text.ends_with(end) && Clock::now() < deadline) {
            text += readAll(reader);
            if (!text.ends_with(end)) {
                reader.wait(running, 100ms);
            }
        }
        return text;
    }

    KxNTests::TemporaryDirectory directory;
    const std::string path = directory.path("ctr.log");
    const KxNNet::Cancellation running;
    LogWatch watch;
    std::shared_ptr<FollowedLog> log;
};

}  // namespace

TEST_F(LogReaderTest, LinesAreWholeWhateverTheDriverAndTheDiskDidToThem) {
    const std::string piece(8000, 'x');
    std::string longLine;
    std::string longText;
    for (int count = 0; count < 40; ++count) {
        longLine += entry("stdout P", piece);
        longText += piece;
    }
    const std::pair<std::string, std::string> cases[] = {
        {entry("stdout F", "a") + entry("stderr F", "") + entry("stdout F", "\r"), "a\n\n\r\n"},
        {entry("stdout P", "a") + entry("stdout P", "b"), "ab"},
        {entry("stdout P", "a") + entry("stderr F", "error") + entry("stdout F", "b"), "error\nab\n"},
        {entry("stdout P", "\xF0\x9F") + entry("stderr F", "\xC3") + entry("stdout F", "\x98\x80"),
         "\xEF\xBF\xBD\n\xF0\x9F\x98\x80\n"},
        {longLine + entry("stdout F", "end"), longText + "end\n"},
        {entry("stdout F", std::string(100'000, 'y')), std::string(100'000, 'y') + "\n"},
        {"2026-11-24T08:1" + entry("stdout F", "behind half a head"), "behind half a head\n"},
        {entry("stdout F", "a") + "2026-11-24T08:1", "a\n"},
        {entry("stdout F", "a") + "2026-11-24T08:14:00Z stdout F end", "a\nend"},
        {entry("stdout F", "a") + std::string(5000, '\0') + entry("stdout F", "b"), "a\n[GAP 5000]b\n"},
        {"no entry at all\n", "no entry at all\n"},
        {"", ""},
    };
    for (const auto& [bytes, text] : cases) {
        write(bytes);
        EXPECT_EQ(readEnded(), text) << bytes.substr(0, 200);
    }
}

TEST_F(LogReaderTest, TailAndTimesChooseWholeLines) {
    std::string old;  // more than the blocks in which the end is looked for
    for (int count = 0; count < 3000; ++count) {
        old += entry("stdout F", "old");
    }
    write(old + entry("stdout F", "1", 1) + entry("stdout P", "2", 2) + entry("stderr F", "error", 3) +
          entry("stdout F", "two", 4) + entry("stdout F", "3", 5) + entry("stdout P", "end", 6));
    const auto range = [](std::uint64_t tail, std::optional<LogTime> since = {}, std::optional<LogTime> until = {},
                          bool hasErrors = true) {
        return LogRange{{true, hasErrors}, tail, since, until, false};
    };
    const std::pair<LogRange, std::string> cases[] = {{range(0), ""},
                                                      {range(1), "end"},
                                                      {range(2), "3\nend"},
                                                      {range(3), "2two\n3\nend"},
                                                      {range(4), "error\n2two\n3\nend"},
                                                      {range(4, {}, {}, false), "1\n2two\n3\nend"},
                                                      {range(LogRange::ALL, at(2)), "error\n2two\n3\nend"},
                                                      {range(LogRange::ALL, at(3)), "error\n3\nend"},
                                                      {range(LogRange::ALL, at(1), at(3)), "1\n2two\n"},
                                                      {range(1, {}, at(2)), "1\n"}};
    for (const auto& [chosen, text] : cases) {
        EXPECT_EQ(readEnded(chosen), text) << chosen.tail;
    }
    EXPECT_EQ(readEnded(range(3004)).size(), readEnded().size() - 4);
    LogRange marked = range(3);
    marked.hasTimestamps = true;
    EXPECT_EQ(readEnded(marked),
              "2026-11-24T08:14:02.775685414+00:00 2two\n2026-11-24T08:14:05.775685414+00:00 3\n"
              "2026-11-24T08:14:06.775685414+00:00 end");
}

TEST_F(LogReaderTest, FollowerThatIsBehindLosesNothingToRotation) {
    write(entry("stdout F", "first"));
    const auto reader = follow();
    EXPECT_EQ(readAll(*reader), "first\n");
    const std::string cursor = reader->cursor();
    std::string text;
    append(entry("stdout P", "over the "));
    for (int file = 0; file < 50; ++file) {
        rotate(entry("stdout F", "rotation " + std::to_string(file)));
        text += "rotation " + std::to_string(file) + "\n";
        while (log->files().back().number != static_cast<std::uint64_t>(file) + 2) {
            std::this_thread::sleep_for(1ms);
        }
    }
    EXPECT_EQ(readUntil(*reader, " 49\n"), "over the " + text);

    log->endRun(0);
    const auto later = follow(cursor);
    LogStep::Kind last{};
    EXPECT_EQ(readAll(*later, {}, &last), "over the " + text) << "somebody who comes back";
    EXPECT_EQ(last, LogStep::Kind::ended);
}

TEST_F(LogReaderTest, WhatCannotBeReadAnyMoreIsToldOf) {
    const std::string line = entry("stdout F", "0123456789");
    const std::string text = "0123456789\n";
    const auto cut = [&](off_t size) {
        std::filesystem::resize_file(path, static_cast<std::uintmax_t>(size));
        while (log->files().back().file->look().size != size) {
        }
        append(line);
    };
    const auto replace = [&] {
        std::filesystem::remove(path);
        write(line);
    };
    const auto size = static_cast<off_t>(line.size());
    // isReadBefore: all that was there
    const std::tuple<const char*, bool, std::function<void()>, std::string> cases[] = {
        {"cut to nothing", true, [&] { cut(0); }, "[GAP]" + text},
        {"cut to nothing, unread", false, [&] { cut(0); }, "[GAP " + std::to_string(2 * size) + "]" + text},
        {"cut by half, unread", false, [&] { cut(size); }, "[GAP " + std::to_string(size) + "]" + text + text},
        {"deleted and made anew, unread", false, replace, text + text + text}};
    for (const auto& [name, isReadBefore, happens, expected] : cases) {
        SCOPED_TRACE(name);
        write(line + line);
        LogWatch fresh;
        log = fresh.follow(ID, path);
        log->beginRun(false);
        FileReader reader(ID, path, log, false, {}, "");
        if (isReadBefore) {
            readAll(reader);
        }
        happens();
        EXPECT_EQ(readUntil(reader, expected), expected);
    }
    write(line);
    const std::string cursor = follow()->cursor();
    replace();
    FileReader reader(ID, path, nullptr, true, {}, cursor.substr(0, cursor.find('-')) + "-1-1");
    EXPECT_EQ(readAll(reader), "[GAP]" + text) << "a place that nobody has any more";
}

TEST_F(LogReaderTest, NoLinkLeadsToALog) {
    const std::string line = entry("stdout F", "secret");
    const std::string storage = directory.path("real/overlay-containers/" + ID + "/userdata");
    writeFile(storage + "/ctr.log", line);
    writeFile(directory.path("secret/ctr.log"), line);
    std::filesystem::create_directory_symlink(directory.path("real"), directory.path("storage"));
    std::filesystem::create_directory_symlink(directory.path("secret"), directory.path("volume"));
    std::filesystem::create_symlink(directory.path("secret/ctr.log"), storage + "/link.log");
    ASSERT_EQ(::mkfifo(directory.path("pipe").c_str(), 0600), 0);
    const std::string own = "overlay-containers/" + ID + "/userdata/";
    const std::pair<std::string, bool> cases[] = {{"secret/ctr.log", true},
                                                  {"storage/" + own + "ctr.log", true},
                                                  {"real/" + own + "ctr.log", true},
                                                  {"volume/ctr.log", false},
                                                  {"storage/" + own + "link.log", false},
                                                  {"pipe", false},
                                                  {"secret", false},
                                                  {"missing", false}};
    for (const auto& [name, isOpened] : cases) {
        EXPECT_EQ(static_cast<bool>(openLogFile(directory.path(name), ID)), isOpened) << name;
    }
    EXPECT_FALSE(openLogFile("ctr.log", ID));
}
