#include "platform/console/containers/counters.h"

#include "tests/support.h"

namespace KxNConsole {
namespace {

TEST(Counters, TheGroupIsTheContainersOwnAndNoOther) {
    const std::string hybrid =
        "9:name=systemd:/libpod_parent/libpod-abc\n3:cpu,cpuacct:/libpod_parent/libpod-abc/inner\n"
        "4:memory:/other\n0::/libpod_parent/libpod-abc\n";
    const struct {
        std::string membership;
        const char* controller;
        const char* group;
    } rows[] = {
        {hybrid, "cpuacct", "/root/cpuacct/libpod_parent/libpod-abc"},
        {hybrid, "memory", ""},
        {hybrid, "pids", ""},
        {hybrid, "", "/root/libpod_parent/libpod-abc"},
        {"0::/machine.slice/libpod-abc.scope/container/init.scope\n", "", "/root/machine.slice/libpod-abc.scope"},
        {"0::/system.slice/podman.service\n", "", ""},
        {"", "", ""},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(findGroup(row.membership, row.controller, "abc", "/root"), row.group)
            << row.membership << row.controller;
    }
}

}  // namespace
}  // namespace KxNConsole
