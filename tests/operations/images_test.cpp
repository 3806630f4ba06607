#include "handler/archive_format.h"
#include "tests/operations/Harness.h"

using namespace KxNCre;
using namespace KxNTests;

class Images : public Operations {};

const std::string DIRECTORY = "/userstorage1/container_rte/utilities/images/";

/// The first `size` bytes of a tar header.
static std::string tarOf(std::size_t size, const char* magic = "ustar") {
    return (std::string(257, 'x') + magic + std::string(size, 'x')).substr(0, size);
}

TEST_F(Images, ListReducesRecords) {
    const std::string failed = "InternalServerError 500: Error occurred while listing images: ";
    const auto listed = [](const std::string& images) {
        const std::string answer = R"({"images":)" + images + "}";
        return "^1: Image list response: " + answer + "\njson 200 " + answer + "\n0: Finished listing images";
    };
    const std::string whole =
        R"([{"Id":"sha256:1","ParentId":"","RepoTags":["a:1"],"RepoDigests":[],"Containers":-1,"Created":1,"Size":9,)"
        R"("SharedSize":0,"Labels":null},{"Id":"2"}])";
    check("listImages", "0: listImages\n0: Listing images\n" + GUARD + "GET /images/json [Accept: application/json]\n",
          {{"", "200 []", listed("[]")},
           {"",
            R"(200 [{"Labels":null,"SharedSize":0,"Size":9,"Created":1,"Containers":-1,"RepoDigests":[],)"
            R"("RepoTags":["a:1"],"ParentId":"","Id":"sha256:1","VirtualSize":9},{"Id":"2"}])",
            listed(whole)},
           {"", "500 why", "^" + failed + "why"},
           {"", "200 null", listed("[]")},
           {"", "200 [7", "^4: Podman's image list cannot be read: incomplete JSON at byte 2\n" + failed + "[7"}});
}

TEST_F(Images, RemoveMapsPodmansStatus) {
    const std::string begun = "0: removeImage\n0: Deleting image\n" + GUARD;
    const std::string failed = "InternalServerError 500: Error occurred while deleting image 'localhost/web:1': ";
    const std::string deep = std::string(100'000, '[') + std::string(100'000, ']');  // JSON, but fatal to who writes it
    check("removeImage", begun + "BadRequest 400: Image name must be provided", {{"", "", "^"}, {";name=", "", "^"}});
    check("removeImage;name=localhost/web:1",
          begun + "DELETE /images/localhost/web:1 [Accept: application/json] long-running\n",
          {{"", R"(200 [ {"Deleted": "b"} ])",
            "^json 200 [{\"Deleted\":\"b\"}]\n0: Finished deleting image localhost/web:1"},
           {"", "409 x", "^Conflict 409: Image 'localhost/web:1' is in use and cannot be deleted"},
           {"", "404 x", "^NotFound 404: Image 'localhost/web:1' does not exist"},
           {"", "500 x", "^" + failed + "x"},
           {"", "200 " + deep,
            "^4: Podman's answer to the deletion of image 'localhost/web:1' cannot be read: it nests more than 64 "
            "levels deep\n" +
                failed + deep}});
}

TEST_F(Images, UploadLoadsTheTarballAndRemovesIt) {
    const std::string path = DIRECTORY + "app.tar";
    const std::string begun = "0: uploadImage\n0: Loading image\n" + GUARD + "1: Detected archive format for '" + path +
                              "': gzip=no, bzip2=no, xz=no, zstd=no, plainTar=yes\n" +
                              "POST /images/load [Content-Type: application/x-tar] body " + path + " long-running\n";
    const std::string finished = "empty 0\n0: Finished loading image " + path;
    const auto checkUpload = [&](const Row& row, const std::function<void()>& duringPodman) {
        ASSERT_EQ(chunk("uploadImage", "app.tar", tarOf(300)), 0);
        world().duringPodman = duringPodman;
        check("uploadImage", begun, {row});
    };
    checkUpload({"", "299", "^" + finished}, [&] { EXPECT_EQ(readFile(path), tarOf(300)); });
    EXPECT_FALSE(std::filesystem::exists(path));
    checkUpload({"", "300 no space",
                 "^4: Podman /images/load failed with HTTP 300: no space\n"
                 "InternalServerError 500: Error occurred while loading the image: no space"},
                nullptr);
    EXPECT_FALSE(std::filesystem::exists(path));
    const std::string notRemoved = "^3: Failed to remove image tarball '" + path + "': Directory not empty\n";
    checkUpload({"", "200", notRemoved + finished}, [&] {
        std::filesystem::remove(path);
        writeFile(path + "/full", "");
    });
}

TEST_F(Images, UploadThatIsNoArchiveStays) {
    const std::string path = DIRECTORY + "note.txt";
    ASSERT_EQ(chunk("uploadImage", "note.txt", "hello"), 0);
    const std::string why = "is not a valid tar archive (supported: .tar, .tar.gz/.tgz, .tar.bz2, .tar.xz, .tar.zst)";
    check("uploadImage", "0: uploadImage\n0: Loading image\n" + GUARD,
          {{"", "",
            "^1: Detected archive format for '" + path +
                "': gzip=no, bzip2=no, xz=no, zstd=no, plainTar=no\n4: Uploaded file '" + path + "' " + why +
                "\nBadRequest 400: Uploaded file " + why}});
    EXPECT_EQ(readFile(path), "hello");
}

TEST(ArchiveFormats, AreKnownByTheirFirstBytes) {
    const std::pair<std::string, const char*> rows[] = {
        {"\x1F\x8B", "gzip=yes,"},         {"BZh", "bzip2=yes,"},          {"\xFD\x37\x7A\x58\x5A\0"s, "xz=yes,"},
        {"\x28\xB5\x2F\xFD", "zstd=yes,"}, {tarOf(262), "plainTar=yes\n"}, {tarOf(261), ""}};
    for (const auto& [content, named] : rows) {
        SCOPED_TRACE(testing::PrintToString(content.substr(0, 8)));
        KxNDoubles::reset();
        std::istringstream file(content);
        const ArchiveFormat format = detectArchiveFormat(file, "f");
        EXPECT_EQ(format.isKnown(), *named != '\0');
        EXPECT_THAT(world().journal, HasSubstr(format.isKnown() ? named : "plainTar=no\n"));
    }
}
