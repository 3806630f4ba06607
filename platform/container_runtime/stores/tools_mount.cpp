#include "platform/container_runtime/stores/tools_mount.h"

#include <fcntl.h>
#include <linux/loop.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <system_error>
#include <utility>

#include "KxLog.h"
#include "platform/common/system_text.h"
#include "platform/common/unique_fd.h"

namespace KxNContainer {

namespace {

using KxNCommon::UniqueFd;

/// File systems that such images are made with.
constexpr const char* FILE_SYSTEMS[] = {"squashfs", "erofs", "ext4"};

bool isMountPoint(const std::string& path) {
    struct stat inside {};
    struct stat above {};
    return ::stat(path.c_str(), &inside) == 0 && ::stat((path + "/..").c_str(), &above) == 0 &&
           inside.st_dev != above.st_dev;
}

struct LoopDevice {
    UniqueFd descriptor;
    std::string path;
};

/// A loop device that shows `image`, and goes with its last user.
LoopDevice attachLoopDevice(const std::string& image) {
    const UniqueFd file(::open(image.c_str(), O_RDONLY | O_CLOEXEC));
    if (!file) {
        throw KxNCommon::systemError("Cannot open '" + image + "'");
    }
    const UniqueFd control(::open("/dev/loop-control", O_RDWR | O_CLOEXEC));
    // Another process may take the free device before we do; then there is another one.
    for (int attempt = 0; control && attempt < 16; ++attempt) {
        const int number = ::ioctl(control.get(), LOOP_CTL_GET_FREE);
        if (number < 0) {
            break;
        }
        LoopDevice device{{}, "/dev/loop" + std::to_string(number)};
        device.descriptor = UniqueFd(::open(device.path.c_str(), O_RDONLY | O_CLOEXEC));
        loop_config config{};
        config.fd = static_cast<__u32>(file.get());
        config.info.lo_flags = LO_FLAGS_READ_ONLY | LO_FLAGS_AUTOCLEAR;
        std::strncpy(reinterpret_cast<char*>(config.info.lo_file_name), image.c_str(), LO_NAME_SIZE - 1);
        if (device.descriptor && ::ioctl(device.descriptor.get(), LOOP_CONFIGURE, &config) == 0) {
            return device;
        }
        if (errno != EBUSY) {
            break;
        }
    }
    throw KxNCommon::systemError("Cannot get a loop device for '" + image + "'");
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
    const LoopDevice device = attachLoopDevice(image);
    isMounted = std::any_of(std::begin(FILE_SYSTEMS), std::end(FILE_SYSTEMS), [&](const char* type) {
        return ::mount(device.path.c_str(), point.c_str(), type, MS_RDONLY | MS_NODEV | MS_NOSUID, nullptr) == 0;
    });
    if (!isMounted) {
        throw KxNCommon::systemError("Cannot mount '" + image + "' at '" + point + "'");
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
