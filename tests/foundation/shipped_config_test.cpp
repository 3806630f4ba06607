// What is shipped to operators says the same as the program does.

#include "platform/custom_config/config_schema.h"
#include "tests/support.h"

using namespace KxNTests;

namespace {

TEST(ShippedConfig, TheConfigurationFileIsTheOneOfTheProgram) {
    const std::string shipped = PACKAGING_DIRECTORY "/kx-container-service.conf";
    const std::string expected = testing::TempDir() + "kx-container-service.conf";
    if (readFile(shipped) == KxNConfigSchema::renderDefaultFile()) {
        return;
    }
    std::ofstream(expected) << KxNConfigSchema::renderDefaultFile();
    FAIL() << shipped << " differs from the keys of the program; copy " << expected << " over it";
}

TEST(ShippedConfig, TheManualPageHasEveryKeyWithItsDefault) {
    std::string page = readFile(PACKAGING_DIRECTORY "/kx-container-service.8");
    std::erase(page, '\\');  // before hyphens
    for (const KxNConfigSchema::Key& key : KxNConfigSchema::getKeys()) {
        EXPECT_THAT(page, HasSubstr(std::string(".SS [") + key.section + "]\n"));
        EXPECT_THAT(page, HasSubstr(std::string(".BR ") + key.name + " \" = " + key.defaultText + "\"\n"));
    }
}

}  // namespace
