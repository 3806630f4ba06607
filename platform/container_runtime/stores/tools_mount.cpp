#include "platform/container_runtime/stores/tools_mount.h"

#include <sys/mount.h>
#include <sys/stat.h>

#include <cerrno>
#include <filesystem>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "KxLog.h"
#include "platform/common/system_text.h"
#include "platform/common/text.h"
#include "platform/process/run_to_end.h"

namespace KxNContainer {

namespace {

constexpr std::chrono::seconds MOUNT_TIME{30};

bool isMountPoint(const std::string& path) {
    struct stat inside {};
    struct stat above {};
    return ::stat(path.c_str(), &inside) == 0 && ::stat((path + "/..").c_str(), &above) == 0 &&
           inside.st_dev != above.st_dev;
}

}  // namespace

ToolsMount::ToolsMount(std::string imagePath, std::string mountPoint)
    : image(std::move(imagePath)), point(std::move(mountPoint)) {}

void ToolsMount::mount() {
    std::error_code error;
    if (isMounted || !std::filesystem::exists(image, error)) {
        return;
    }
    std::filesystem::create_directories(point, error);
    if (error) {
        throw std::system_error(error, "Cannot make '" + point + "'");
    }
    if (isMountPoint(point)) {
        KxCRTE_LOG(2, "Korvex Container Service: Container tools are mounted at %s already", point.c_str());
        return;
    }
    // It finds out what file system the image holds, and makes a loop device that goes with its last user.
    const KxNProcess::RunResult result = KxNProcess::runToEnd(
        {"/bin/mount", {"-o", "loop,ro,nodev,nosuid", image, point}, {"PATH=/usr/sbin:/usr/bin:/sbin:/bin"}}, {},
        std::chrono::steady_clock::now() + MOUNT_TIME);
    isMounted = result.end == KxNProcess::RunResult::End::Exited && result.exitCode == 0;
    if (!isMounted) {
        throw std::runtime_error("Cannot mount '" + image + "' at '" + point + "': " + result.error +
                                 std::string(KxNCommon::trim(result.output, "\n")));
    }
    KxCRTE_LOG(2, "Korvex Container Service: Container tools mounted at %s", point.c_str());
}

void ToolsMount::unmount() {
    if (!isMounted) {
        return;
    }
    if (::umount2(point.c_str(), UMOUNT_NOFOLLOW) == 0) {
        isMounted = false;
    } else {
        KxCRTE_LOG(2, "Korvex Container Service: Container tools stay mounted at %s: %s", point.c_str(),
                   KxNCommon::systemText(errno).c_str());
    }
}

}  // namespace KxNContainer
