
#include "handler/archive_format.h"
#include "tests/operations/Harness.h"

using namespace KxNCre;
using namespace KxNTests;

namespace {

class Images : public Operations {};

const std::string DIRECTORY = "/userstorage1/container_rte/utilities/images/";

/// The first `size` bytes of a tar header.
std::string tarOf(std::size_t size, const char* magic = "ustar") {
    return (std::string(257, 'x') + magic + std::string(size, 'x')).substr(0, size);
}

TEST_F(Images, ListReducesRecords) {
    const std::string asked =
        "\n0: listImages\n0: Listing images\n<guard>\nGET /images/json [Accept: application/json]\n";
    const std::string failed = "error 500 InternalServerError: Error occurred while listing images: ";
    const auto listed = [&](const std::string& answer) {
        return asked + "1: Image list response: " + answer + "\njson 200 " + answer + "\n0: Finished listing images\n";
    };
    checkAnswers(
        ENDPOINT_LIST_IMAGES, {},
        {
            {200, "[]", listed(R"({"images":[]})")},
            {200,
             R"([{"Labels":null,"SharedSize":0,"Size":9,"Created":1,"Containers":-1,"RepoDigests":[],)"
             R"("RepoTags":["a:1"],"ParentId":"","Id":"sha256:1","VirtualSize":9},{"Id":"2"}])",
             listed(R"({"images":[{"Id":"sha256:1","ParentId":"","RepoTags":["a:1"],"RepoDigests":[],"Containers":-1,)"
                    R"("Created":1,"Size":9,"SharedSize":0,"Labels":null},{"Id":"2"}]})")},
            {500, "why", asked + failed + "why\n"},
            {200, "null", listed(R"({"images":[]})")},
            {200, "7", asked + "4: Podman's image list cannot be read: not an array\n" + failed + "7\n"},
        });
}

TEST_F(Images, RemoveMapsPodmanStatus) {
    const std::string begun = "\n0: removeImage\n0: Deleting image\n<guard>\n";
    const std::string asked = begun + "DELETE /images/localhost/web:1 [Accept: application/json] long-running\n";
    const std::string failed = "error 500 InternalServerError: Error occurred while deleting image 'localhost/web:1': ";
    const std::string deep = std::string(100'000, '[') + std::string(100'000, ']');  // JSON, but fatal to who writes it
    checkAnswers(ENDPOINT_REMOVE_IMAGE, {name("")},
                 {{200, "[]", begun + "error 400 BadRequest: Image name must be provided\n"}});
    checkAnswers(
        ENDPOINT_REMOVE_IMAGE, {name("localhost/web:1")},
        {
            {200, R"([ {"Deleted": "b"} ])",
             asked + "json 200 [{\"Deleted\":\"b\"}]\n0: Finished deleting image localhost/web:1\n"},
            {409, "x", asked + "error 409 Conflict: Image 'localhost/web:1' is in use and cannot be deleted\n"},
            {404, "x", asked + "error 404 NotFound: Image 'localhost/web:1' does not exist\n"},
            {500, "x", asked + failed + "x\n"},
            {200, deep,
             asked +
                 "4: Podman's answer to the deletion of image 'localhost/web:1' cannot be read: it nests more than " +
                 "64 levels deep\n" + failed + deep + "\n"},
        });
}

TEST_F(Images, UploadLoadsTheTarballAndRemovesIt) {
    const std::string path = DIRECTORY + "app.tar";
    const std::string begun = expected("\n0: uploadImage\n0: Loading image\n<guard>\n") +
                              "1: Detected archive format for '" + path +
                              "': gzip=no, bzip2=no, xz=no, zstd=no, plainTar=yes\n" +
                              "POST /images/load [Content-Type: application/x-tar] body " + path + " long-running\n";
    const auto upload = [&] { ASSERT_EQ(chunk(ENDPOINT_UPLOAD_IMAGE, "app.tar", tarOf(300)), 0); };

    upload();
    world().duringPodman = [&] { EXPECT_EQ(readFile(path), tarOf(300)); };
    EXPECT_EQ(call(ENDPOINT_UPLOAD_IMAGE), begun + "empty 0\n0: Finished loading image " + path + "\n");
    EXPECT_FALSE(std::filesystem::exists(path));

    upload();
    world().podman = {"no space", 500};
    EXPECT_EQ(call(ENDPOINT_UPLOAD_IMAGE),
              begun +
                  "4: Podman /images/load failed with HTTP 500: no space\n"
                  "error 500 InternalServerError: Error occurred while loading the image: no space\n");
    EXPECT_FALSE(std::filesystem::exists(path));

    upload();
    world().podman = {"", 200};
    world().duringPodman = [&] {
        std::filesystem::remove(path);
        writeFile(path + "/full", "");
    };
    EXPECT_EQ(call(ENDPOINT_UPLOAD_IMAGE), begun + "3: Failed to remove image tarball '" + path +
                                               "': Directory not empty\nempty 0\n0: Finished loading image " + path +
                                               "\n");
}

TEST_F(Images, UploadThatIsNoArchiveStays) {
    const std::string path = DIRECTORY + "note.txt";
    ASSERT_EQ(chunk(ENDPOINT_UPLOAD_IMAGE, "note.txt", "hello"), 0);
    const std::string refusal =
        "is not a valid tar archive (supported: .tar, .tar.gz/.tgz, .tar.bz2, .tar.xz, .tar.zst)\n";
    EXPECT_EQ(call(ENDPOINT_UPLOAD_IMAGE),
              expected("\n0: uploadImage\n0: Loading image\n<guard>\n") + "1: Detected archive format for '" + path +
                  "': gzip=no, bzip2=no, xz=no, zstd=no, plainTar=no\n4: Uploaded file '" + path + "' " + refusal +
                  "error 400 BadRequest: Uploaded file " + refusal);
    EXPECT_EQ(readFile(path), "hello");
}

TEST_F(Images, FinishWithoutAFileIsRefused) {
    const std::string refused =
        expected("\n0: uploadImage\n0: Loading image\n<guard>\nerror 400 BadRequest: No image tarball was uploaded\n");
    EXPECT_EQ(call(ENDPOINT_UPLOAD_IMAGE), refused);

    for (const char* fileName : {"", static_cast<const char*>(nullptr)}) {
        world().journal.clear();
        EXPECT_EQ(chunk(ENDPOINT_UPLOAD_IMAGE, fileName, "x"), -1);
        EXPECT_EQ(world().journal, "4: Rejected image upload with empty file name\n");
        EXPECT_EQ(call(ENDPOINT_UPLOAD_IMAGE), refused);
    }

    ASSERT_EQ(chunk(ENDPOINT_UPLOAD_IMAGE, "gone.tar", tarOf(300)), 0);
    std::filesystem::remove(DIRECTORY + "gone.tar");
    EXPECT_EQ(call(ENDPOINT_UPLOAD_IMAGE), refused);
}

TEST(ArchiveFormats, AreKnownByTheirFirstBytes) {
    const std::pair<std::string, const char*> rows[] = {
        {"\x1F\x8B"s, "gzip"},
        {"\x1F"s, ""},
        {"BZh"s, "bzip2"},
        {"BZ"s, ""},
        {"\xFD\x37\x7A\x58\x5A\0"s, "xz"},
        {"\xFD\x37\x7A\x58\x5A"s, ""},
        {"\x28\xB5\x2F\xFD"s, "zstd"},
        {"\x28\xB5\x2F"s, ""},
        {""s, ""},
        {tarOf(262), "plainTar"},
        {tarOf(261), ""},
        {tarOf(300, "Ustar"), ""},
        {"\x1F\x8B" + tarOf(300).substr(2), "gzip"},
    };
    KxNDoubles::reset();
    for (const auto& [content, expectedFormat] : rows) {
        std::istringstream file(content);
        const ArchiveFormat format = detectArchiveFormat(file, "f");
        const std::string names = std::string(format.gzip ? "gzip" : "") + (format.bzip2 ? "bzip2" : "") +
                                  (format.xz ? "xz" : "") + (format.zstd ? "zstd" : "") +
                                  (format.plainTar ? "plainTar" : "");
        EXPECT_EQ(names, expectedFormat) << testing::PrintToString(content.substr(0, 8));
        EXPECT_EQ(format.isKnown(), !names.empty());
    }
}

}  // namespace
