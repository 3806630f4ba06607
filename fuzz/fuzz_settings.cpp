// Whatever the settings file holds: what is not ours survives a change, and what is broken survives beside it. A file
// that cannot be read is not written over.
#include <stdexcept>

#include "KxJson.h"
#include "fuzz/require.h"
#include "fuzz/scratch_directory.h"
#include "platform/container_runtime/stores/json_file.h"
#include "platform/container_runtime/stores/settings_store.h"

using namespace KxNContainer;

constexpr std::size_t MOST_BYTES = 1 << 20;

static void requireUnreadableIsKept(const ScratchDirectory& directory) {
    std::filesystem::create_directory(directory.path("unreadable"));
    SettingsStore store(directory.path("unreadable"), 4);
    KX_REQUIRE(!store.setEnabled(false) && store.isEnabled() && store.userSettings().coresNum == 4);
}

/// An input that begins with 0xFF stands for a file that is larger than any may be.
void fuzz(std::string_view input) {
    static const ScratchDirectory directory;
    std::string text(input);
    if (input.empty()) {
        requireUnreadableIsKept(directory);
    } else if (text[0] == '\xFF') {
        text = "{}" + std::string(MOST_BYTES, ' ');
    }
    directory.write("settings", text);

    KxNJson::json expected = KxNJson::json::object();
    bool isObject = true;
    try {
        expected = readJsonFile(directory.path("settings")).value();
    } catch (const std::invalid_argument&) {
        isObject = false;
    }

    SettingsStore store(directory.path("settings"), 4);
    KX_REQUIRE(directory.read(isObject ? "settings" : "settings.broken-1") == text);
    KX_REQUIRE(store.setUserSettings({-7, 1234567}));
    expected["tcp_port"] = -7;
    expected["cores_num"] = 1234567;
    const KxNJson::json written = readJsonFile(directory.path("settings")).value();
    KX_REQUIRE(written == expected && written.dump() == expected.dump());

    const SettingsStore again(directory.path("settings"), 4);
    KX_REQUIRE(again.userSettings().tcpPort == -7 && again.userSettings().coresNum == 1234567);
    KX_REQUIRE(again.isEnabled() == store.isEnabled());
    KX_REQUIRE(store.setEnabled(!again.isEnabled()) && store.isEnabled() != again.isEnabled());
    std::filesystem::remove(directory.path("settings.broken-1"));
}
