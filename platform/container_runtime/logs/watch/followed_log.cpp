#include "platform/container_runtime/logs/watch/followed_log.h"

#include <sys/eventfd.h>

#include <algorithm>

#include "platform/common/system_text.h"

namespace KxNContainer {

namespace {

/// Beyond this the oldest files go, but for the last two: they keep the disk from getting its room back.
constexpr off_t MAX_HELD_BYTES = 32L << 20;
constexpr std::size_t MAX_HELD_FILES = 128;

}  // namespace

LogBell::LogBell() : event(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (!event) {
        throw KxNCommon::systemError("eventfd");
    }
}

void LogBell::ring() {
    ::eventfd_write(event.get(), 1);
}

void LogBell::silence() {
    eventfd_t count = 0;
    ::eventfd_read(event.get(), &count);
}

std::vector<FollowedLog::File> FollowedLog::files() const {
    const std::lock_guard lock(mutex);
    return {held.begin(), held.end()};
}

std::optional<FollowedLog::File> FollowedLog::fileBehind(std::uint64_t number) const {
    const std::lock_guard lock(mutex);
    const auto found = std::find_if(held.begin(), held.end(), [&](const File& file) { return file.number > number; });
    return found == held.end() ? std::nullopt : std::optional(*found);
}

FollowedLog::Run FollowedLog::run() const {
    const std::lock_guard lock(mutex);
    return current;
}

std::uint64_t FollowedLog::activity() const {
    const std::lock_guard lock(mutex);
    return activities;
}

void FollowedLog::add(LogBell& bell) {
    const std::lock_guard lock(mutex);
    bells.insert(&bell);
}

void FollowedLog::remove(LogBell& bell) {
    const std::lock_guard lock(mutex);
    bells.erase(&bell);
}

std::vector<FollowedLog::File> FollowedLog::takeFile(const std::shared_ptr<LogFile>& file, std::uint64_t replacements) {
    const std::lock_guard lock(mutex);
    ++activities;
    if (held.empty()) {
        if (file) {
            held.push_back({1, file});
        }
    } else if (file && held.back().file != file) {
        held.push_back({held.back().number + std::max<std::uint64_t>(replacements, 1), file});
        hasRotated = true;
        return dropOld();
    } else if (hasRotated) {
        held.back().number += replacements;  // seen late: the file before this one came and went
    }
    return {};
}

void FollowedLog::countActivity() {
    const std::lock_guard lock(mutex);
    ++activities;
}

std::vector<FollowedLog::File> FollowedLog::dropOld() {
    off_t size = 0;
    std::size_t kept = 0;
    for (auto file = held.rbegin(); file != held.rend() && kept < MAX_HELD_FILES; ++file, ++kept) {
        size += kept == 0 ? 0 : file->file->look().size;
        if (kept > 1 && size > MAX_HELD_BYTES) {
            break;
        }
    }
    const auto keptBegin = held.end() - static_cast<std::ptrdiff_t>(kept);
    std::vector<File> dropped(held.begin(), keptBegin);
    held.erase(held.begin(), keptBegin);
    return dropped;
}

void FollowedLog::beginRun(bool isWatched) {
    const std::lock_guard lock(mutex);
    current = {current.number + 1, false, isWatched, std::nullopt};
}

void FollowedLog::endRun(std::optional<int> exitCode) {
    const std::lock_guard lock(mutex);
    if (!current.hasEnded) {
        current.hasEnded = true;
        current.exitCode = exitCode;
    }
}

void FollowedLog::ringAll() {
    const std::lock_guard lock(mutex);
    for (LogBell* const bell : bells) {
        bell->ring();
    }
}

}  // namespace KxNContainer
