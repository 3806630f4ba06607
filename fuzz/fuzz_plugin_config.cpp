// Whatever the plugin configuration holds: a broken one is never written, in a good one a change does that and no more.
#include "fuzz/require.h"
#include "fuzz/scratch_directory.h"
#include "platform/container_runtime/stores/plugin_config.h"

using namespace KxNContainer;

static bool isListedAsDeactivated(const PluginConfig& config) {
    return config.list().at("plugins").at(0).at("isDeactivated").get<bool>();
}

/// The text as a file name: no configuration is one, so nothing changes.
static void requireRefused(PluginConfig& config, const std::string& text) {
    KX_REQUIRE(config.dropEntry(text) != PluginConfig::CHANGED);
    if (const auto named = parsePluginFileName(text)) {
        KX_REQUIRE(config.deactivate(*named) != PluginConfig::CHANGED);
        KX_REQUIRE(config.activate(*named) != PluginConfig::CHANGED);
    }
}

void fuzz(std::string_view input) {
    static const ScratchDirectory directory;
    static const PluginIdentity plugin{"web", "1"};
    const std::string text(input);
    for (const char* name : {"web_1.crp", "x.crp", "x_1.0.crp"}) {  // the last two are one plugin
        directory.write(name, "");
    }
    directory.write("config.json", text);

    PluginConfig config(directory.path(""), directory.path("config.json"));
    config.scanDirectory();
    requireRefused(config, text);
    KX_REQUIRE(directory.read("config.json") == text);
    const bool wasDeactivated = isListedAsDeactivated(config);
    const PluginConfig::Code code = config.deactivate(plugin);
    if (code != PluginConfig::CHANGED) {
        KX_REQUIRE(code == (wasDeactivated ? PluginConfig::ALREADY_SO : PluginConfig::NOT_WRITTEN));
        KX_REQUIRE(directory.read("config.json") == text);
    }
    if (code == PluginConfig::NOT_WRITTEN) {
        KX_REQUIRE(config.activate(plugin) == PluginConfig::NOT_WRITTEN);
        KX_REQUIRE(config.dropEntry("web_1.crp") == PluginConfig::NOT_WRITTEN);
        KX_REQUIRE(directory.read("config.json") == text);
        return;
    }
    KX_REQUIRE(isListedAsDeactivated(config));
    KX_REQUIRE(config.activate(plugin) == PluginConfig::CHANGED && !isListedAsDeactivated(config));
    KX_REQUIRE(config.dropEntry("web_1.crp") == PluginConfig::ALREADY_SO);

    // What is not about the plugin is as it was.
    if (!wasDeactivated) {
        KxNJson::json expected = KxNJson::json::parse(text);
        expected.emplace("deactivated", KxNJson::json::array());
        KX_REQUIRE(KxNJson::json::parse(directory.read("config.json")).dump() == expected.dump());
    }
}
