// The identities file of a running server, followed.
#pragma once

#include <sys/stat.h>

#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "platform/web_api/identities/identity_list.h"

namespace KxNTamberWebApi {

class Identities {
public:
    /// Reads the file at `path`. Without a file there is no identity. One that cannot be used is told in the log; then
    /// nobody knows whom a certificate belongs to, and `areKnown` is false until the file is mended.
    explicit Identities(std::string path);

    /// Whether the file is another one than was read last. The same thread as `follow`.
    bool hasChanged() const;

    /// Reads the file anew when it has changed. One that cannot be used is told in the log, and the last good state
    /// stays. May wait for the disk. One thread at a time.
    void follow();

    /// The state to work with; never null. Any thread.
    std::shared_ptr<const IdentityList> current() const;
    bool areKnown() const;

private:
    void read();

    const std::string path;
    struct stat seen {};  ///< what the file was when it was read last; all zeros when there was none

    mutable std::mutex mutex;
    std::shared_ptr<const IdentityList> list = std::make_shared<IdentityList>();
    bool known = false;
};

}  // namespace KxNTamberWebApi
