#include "platform/web_api/description/openapi.h"

#include "KxJson.h"
#include "api/endpoints.h"
#include "api/schemas.h"
#include "tests/support.h"

using namespace KxNTests;
using KxNJson::json;
using namespace KxNTamberWebApi;

namespace {

std::string makeText(const KxSApiSchemas* schemas, bool needsToken) {
    const DescribedTable table{KxNCre::ENDPOINTS, schemas};
    return makeOpenApiDocument({"Title", "Description", "1.0", "/api/cre/v1.0"}, {&table, 1}, needsToken);
}

TEST(OpenApi, EachReferenceHasATargetAndEachTargetAReference) {
    for (const bool needsToken : {true, false}) {
        const std::string text = makeText(&KxNCre::SCHEMAS, needsToken);
        const json document = json::parse(text);
        EXPECT_EQ(document["security"].empty(), !needsToken);
        EXPECT_EQ(document["components"]["responses"].contains("Unauthorized"), needsToken);
        for (const char* kind : {"schemas", "responses"}) {
            for (const auto& [name, component] : document["components"][kind].items()) {
                const std::string reference = std::string("\"#/components/") + kind + "/" + name + "\"";
                EXPECT_NE(text.find(reference), std::string::npos) << reference;
            }
        }
        std::size_t at = 0;
        while ((at = text.find("\"$ref\":\"#", at)) != std::string::npos) {
            const std::size_t begin = at + 9;
            at = text.find('"', begin);
            EXPECT_TRUE(document.contains(json::json_pointer(text.substr(begin, at - begin))));
        }
    }
}

TEST(OpenApi, RefusesATableThatIsWrong) {
    const KxSNamedSchema brokenSchema[] = {{"Broken", "{"}, {nullptr, nullptr}};
    const KxSOperationSchema unknownOperation[] = {{"fly", "Fly", nullptr, nullptr, nullptr},
                                                   {nullptr, nullptr, nullptr, nullptr, nullptr}};
    const KxSApiSchemas broken = {brokenSchema, KxNCre::SCHEMAS.operations};
    const KxSApiSchemas unknown = {KxNCre::SCHEMAS.named, unknownOperation};
    EXPECT_THROW(makeText(&broken, true), std::invalid_argument);
    EXPECT_THROW(makeText(&unknown, true), std::invalid_argument);
    EXPECT_NO_THROW(makeText(nullptr, true));
}

}  // namespace
