#include "platform/web_api/identities/identities.h"

#include <exception>
#include <tuple>
#include <utility>

#include "KxLog.h"

namespace KxNTamberWebApi {

namespace {

/// What differs between two states of a file: it was written, replaced, or given to others.
auto stateOf(const struct stat& file) {
    return std::tuple(file.st_dev, file.st_ino, file.st_size, file.st_mode, file.st_uid, file.st_mtim.tv_sec,
                      file.st_mtim.tv_nsec, file.st_ctim.tv_sec, file.st_ctim.tv_nsec);
}

struct stat look(const std::string& path) {
    struct stat file {};
    if (::lstat(path.c_str(), &file) != 0) {
        file = {};
    }
    return file;
}

}  // namespace

Identities::Identities(std::string filePath) : path(std::move(filePath)), seen(look(path)) {
    read();
}

bool Identities::hasChanged() const {
    return stateOf(look(path)) != stateOf(seen);
}

void Identities::follow() {
    const struct stat now = look(path);
    if (stateOf(now) != stateOf(seen)) {
        seen = now;  // before it is read: what changes meanwhile is found the next time
        read();
    }
}

void Identities::read() {
    const auto before = current();
    try {
        auto file = readIdentitiesFile(path);
        auto read =
            std::make_shared<const IdentityList>(file ? std::move(file->identities) : std::vector<Identity>(), *before);
        const std::lock_guard lock(mutex);
        if (read->size() > 0 || before->size() > 0) {
            KxCRTE_LOG(2, "Korvex Container Service: Web API: %zu identities in '%s'", read->size(), path.c_str());
        }
        list = std::move(read);
        known = true;
    } catch (const std::exception& failure) {
        KxCRTE_LOG(4, "Korvex Container Service: Web API: %s; %s", failure.what(),
                   areKnown() ? "the last good one stays" : "nobody but the administrator's token gets in");
    }
}

std::shared_ptr<const IdentityList> Identities::current() const {
    const std::lock_guard lock(mutex);
    return list;
}

bool Identities::areKnown() const {
    const std::lock_guard lock(mutex);
    return known;
}

}  // namespace KxNTamberWebApi
