#include "platform/web_api/http/content_disposition.h"

#include "tests/support.h"

using namespace KxNTests;
using namespace KxNTamberWebApi;

namespace {

TEST(ContentDispositionTest, GivesTypeFieldAndFile) {
    const std::pair<const char*, const char*> rows[] = {
        {"attachment; filename=a.tar", "attachment||a.tar"},
        {"  ATTACHMENT ;FileName = \"a b;c.tar\" ; x=y;", "attachment||a b;c.tar"},
        {"form-data; name=\"f\"; filename=\"say \\\"hi\\\".txt\"", "form-data|f|say \"hi\".txt"},
        {"form-data; name=f; filename=\"say %22hi%22%41.txt\"", "form-data|f|say \"hi\"%41.txt"},
        {"attachment; filename=\"100%22.txt\"", "attachment||100%22.txt"},
        {"form-data; name=f; filename=caf\xC3\xA9.txt", "form-data|f|caf\xC3\xA9.txt"},
        {"attachment; filename=web:1 final.tar", "attachment||web:1 final.tar"},
        // the extended form
        {"attachment; filename=\"plain.txt\"; filename*=UTF-8''caf%C3%A9%20%25.txt", "attachment||caf\xC3\xA9 %.txt"},
        {"attachment; filename*=iso-8859-1'en'caf%E9.txt; filename=x", "attachment||caf\xC3\xA9.txt"},
        {"attachment; filename*=utf-8''%zz; filename=plain.txt", "attachment||plain.txt"},
        {"attachment; filename*=koi8-r''x; filename=plain.txt", "attachment||plain.txt"},
        {"attachment; filename*=utf-8''..%2F..%2Fetc%2Fpasswd", "attachment||passwd"},
        // only the last component counts
        {"attachment; filename=\"../../etc/passwd\"", "attachment||passwd"},
        {"attachment; filename=\"C:\\Users\\me\\a.tar\"", "attachment||a.tar"},
        {"attachment; filename=\"C:\\\\Users\\\\me\\\\a.tar\"", "attachment||a.tar"},
        {"attachment; filename=\"/tmp/..\"", "attachment||"},
        {"attachment; filename=.", "attachment||"},
        {"attachment; filename=\"dir/\"", "attachment||"},
        {"attachment; filename=...", "attachment||..."},
        {"attachment; filename=a; filename=b", "attachment||a"},
        {"attachment", "attachment||"},
        {"attachment; filename=", "attachment||"}};
    std::string error;
    for (const auto& [value, expected] : rows) {
        const auto parsed = parseContentDisposition(value, error);
        ASSERT_TRUE(parsed) << value;
        EXPECT_EQ(parsed->type + "|" + parsed->fieldName + "|" + parsed->fileName, expected) << value;
    }
    for (const char* value : {"attachment; filename*=utf-8''a%0Ab", "attachment; filename*=utf-8''a%00b",
                              "form-data; name=f; filename=\"a%0D%0Ab\"", "attachment; filename=\"a\tb\""}) {
        EXPECT_FALSE(parseContentDisposition(value, error)) << value;
        EXPECT_EQ(error, "A name in the Content-Disposition field holds a control character");
    }
    for (const char* value : {"", "; filename=a", "attachment; filename=\"a", "attachment; filename=\"a\"b",
                              "attachment; filename", "attachment; =a", "attachment; filename=\"a\\\""}) {
        EXPECT_FALSE(parseContentDisposition(value, error)) << value;
        EXPECT_EQ(error, "The Content-Disposition field cannot be parsed");
    }
}

TEST(ContentTypeTest, GivesTheMediaTypeAndAUsableBoundary) {
    const std::string seventy(70, 'b');
    const std::tuple<std::string, const char*, std::string> rows[] = {
        {"application/json", "application/json", ""},
        {" Application/JSON ; charset=utf-8", "application/json", ""},
        {"multipart/form-data; charset=x; boundary=AbC", "multipart/form-data", "AbC"},
        {"multipart/form-data; BOUNDARY=\"a b:c\"", "multipart/form-data", "a b:c"},
        {"multipart/form-data; boundary=" + seventy, "multipart/form-data", seventy},
        {"multipart/form-data; boundary=b" + seventy, "multipart/form-data", ""},
        {"multipart/form-data; boundary=\"a \"", "multipart/form-data", ""},
        {"multipart/form-data; boundary=", "multipart/form-data", ""},
        {"multipart/form-data; boundary=\"a\nb\"", "multipart/form-data", ""},
        {"multipart/form-data; boundary", "multipart/form-data", ""},
        {"", nullptr, ""},
        {"json", nullptr, ""},
        {"application/", nullptr, ""},
        {"/json", nullptr, ""},
        {"a b/c", nullptr, ""}};
    for (const auto& [value, mediaType, boundary] : rows) {
        const auto parsed = parseContentType(value);
        ASSERT_EQ(parsed.has_value(), mediaType != nullptr) << value;
        if (parsed) {
            EXPECT_EQ(parsed->mediaType, mediaType) << value;
            EXPECT_EQ(parsed->boundary, boundary) << value;
        }
    }
}

}  // namespace
