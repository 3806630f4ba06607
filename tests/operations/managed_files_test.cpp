// Compose files, certificates and plugins: what is listed, uploaded and deleted, and in which words.
#include <fcntl.h>
#include <sys/stat.h>

#include "tests/operations/Harness.h"

using namespace KxNTests;
namespace fs = std::filesystem;

const std::string CERTS = "/mnt/cfdrive/containers/certs";
const std::string COMPOSE = "/userstorage1/container_rte/utilities/compose-files/";
const std::string PLUGINS = "/userstorage1/container_rte/plugins/";

class ManagedFiles : public Operations {
protected:
    /// The journal of chunks that are all refused, one for each name.
    std::string refusedChunks(const std::string& operation, const std::vector<const char*>& names) {
        world().journal.clear();
        for (const char* name : names) {
            EXPECT_EQ(chunk(operation, name, "x"), -1);
        }
        return world().journal;
    }
};

TEST_F(ManagedFiles, ListHoldsRegularFilesWithLinksFollowed) {
    const std::string rows[][8] = {
        {"listCerts", CERTS, "TLS certificate files", " TLS certificate file(s)\njson 200 ", "{\"certs\":", "}",
         "certificate directory", "InternalServerError 500: Failed to iterate certificate directory: Not a directory"},
        {"listComposeFiles", COMPOSE.substr(0, COMPOSE.size() - 1), "Docker compose files",
         " compose file(s)\njson 200 ", "", "", "compose-files directory", "0: Found 0 compose file(s)\njson 200 []"},
    };
    for (const auto& [operation, path, files, found, answerBegin, answerEnd, directory, iterated] : rows) {
        const std::string begun = "0: " + operation + "\n0: Listing " + files + "\n" + GUARD;
        const std::string entry = R"({"fileName":".link","size":5,"modified":1700000000})";
        check(operation, begun, {{"", "", "^0: Found 0" + found + answerBegin + "[]" + answerEnd}});

        fs::create_directories(path + "/subdirectory");
        fs::create_symlink("nowhere", path + "/dangling");
        mkfifo((path + "/fifo").c_str(), 0600);
        writeFile(path + "/../target", "12345");
        const timespec times[2] = {{1700000000, 900000000}, {1700000000, 900000000}};
        utimensat(AT_FDCWD, (path + "/../target").c_str(), times, 0);
        fs::create_symlink("../target", path + "/.link");
        check(operation, begun, {{"", "", "^0: Found 1" + found + answerBegin + "[" + entry + "]" + answerEnd}});

        fs::remove_all(path);
        fs::create_symlink(path, path);
        check(operation, begun,
              {{"", "",
                "^InternalServerError 500: Failed to access " + directory + ": Too many levels of symbolic links"}});
        fs::remove(path);
        writeFile(path, "");
        check(operation, begun, {{"", "", "^" + iterated}});
    }
}

TEST_F(ManagedFiles, CertificatesAreKeptUnderTheirFixedNames) {
    const std::string kinds[][5] = {
        {"Certificate", "server.crt", "TLS certificate", "TLS certificate", "CA certificate"},
        {"PrivateKey", "server.key", "TLS private key", "private key", "TLS private key"},
        {"CaCertificate", "ca.crt", "CA certificate", "CA certificate", "CA certificate"}};
    for (const auto& [operation, fileName, logName, missingName, deleteName] : kinds) {
        SCOPED_TRACE(fileName);
        const std::string path = CERTS + "/" + fileName;
        const std::string upload = "upload" + operation;
        const std::string begun = "0: " + upload + "\n0: Uploading " + logName + "\n" + GUARD;
        const Row refused = {"", "", "^BadRequest 400: No " + missingName + " file was uploaded"};
        const std::string rejected = "4: No file name provided for " + logName + " upload\n";
        EXPECT_EQ(refusedChunks(upload, {"", nullptr}), rejected + rejected);
        check(upload, begun, {refused});

        writeFile(path, "from before, for everybody to read");
        EXPECT_EQ(chunk(upload, "mine.pem", "first, and longer"), 0);
        call(upload);
        EXPECT_EQ(chunk(upload, "other.pem", "sec"), 0);
        EXPECT_EQ(chunk(upload, nullptr, "ond", 3), 0);
        check(upload, begun,
              {{"", "", "^json 200 {\"filename\":\"" + fileName + "\"}\n0: " + logName + " uploaded successfully"},
               refused});
        EXPECT_EQ(readFile(path), "second");
        EXPECT_EQ((fs::status(path).permissions() & fs::perms::others_read) == fs::perms::none,
                  fileName == "server.key");
        EXPECT_EQ(chunk(upload, "gone.pem", "x"), 0);
        fs::remove(path);
        check(upload, begun, {refused});

        writeFile(path, "");
        check("delete" + operation, "0: delete" + operation + "\n0: Deleting " + deleteName + "\n" + GUARD,
              {{"", "", "^empty 0"}, {"", "", "^NotFound 404: File '" + path + "' not found"}});
    }
    fs::remove_all(CERTS);
    EXPECT_EQ(chunk("uploadPrivateKey", "key", "x"), 0);
    EXPECT_EQ(fs::status(CERTS + "/server.key").permissions(), fs::perms::owner_read | fs::perms::owner_write);
}

TEST_F(ManagedFiles, FinishNeedsAFileThatIsThere) {
    const std::string uploads[][5] = {
        {"uploadImage", "Loading image", "No image tarball was uploaded", "image", "gone.tar"},
        {"uploadComposeFile", "Finalising compose file upload", "No compose YAML file was uploaded", "compose file",
         "gone.yml"},
        {"uploadPlugin", "Finalising CRP plugin upload",
         "No CRP plugin file was uploaded. Make sure the name of the file is not empty and has a .crp extension",
         "plugin", "gone.crp"},
    };
    for (const auto& [operation, begun, missing, rejected, fileName] : uploads) {
        const Row refused = {"", "", "0: " + operation + "\n0: " + begun + "\n" + GUARD + "BadRequest 400: " + missing};
        const std::string line = "4: Rejected " + rejected + " upload with empty file name\n";
        EXPECT_EQ(refusedChunks(operation, {"", nullptr}), line + line);
        check(operation, "", {refused});
        ASSERT_EQ(chunk(operation, fileName.c_str(), "x"), 0);
        fs::remove_all("/userstorage1/container_rte");
        check(operation, "", {refused});
    }
    // A status that cannot be read is raised.
    for (const std::string& path : {COMPOSE + "loop", PLUGINS + "loop.crp"}) {
        const std::string operation = path.ends_with(".crp") ? "uploadPlugin" : "uploadComposeFile";
        ASSERT_EQ(chunk(operation, fs::path(path).filename().c_str(), "x"), 0);
        fs::remove(path);
        fs::create_symlink(path, path);
        EXPECT_THROW(call(operation), fs::filesystem_error);
    }
}

TEST_F(ManagedFiles, UploadedFilesKeepTheirNames) {
    ASSERT_EQ(chunk("uploadComposeFile", "any name", "x"), 0);
    check("uploadComposeFile", "0: uploadComposeFile\n0: Finalising compose file upload\n" + GUARD,
          {{"", "",
            "^json 200 {\"filename\":\"any name\"}\n0: Finished uploading compose file '" + COMPOSE + "any name'"}});

    const std::string invalid = "4: Invalid file type uploaded, only .crp files are accepted\n";
    EXPECT_EQ(refusedChunks("uploadPlugin", {"crp", "plugin.CRP", "plugin.crp.gz"}), invalid + invalid + invalid);
    world().journal.clear();
    ASSERT_EQ(chunk("uploadPlugin", ".crp", "x"), 0);
    ASSERT_EQ(chunk("uploadPlugin", "no plugin", "y", 1), 0) << "later names do not matter";
    EXPECT_THAT(world().journal, StartsWith("0: Starting CRP plugin upload '.crp'\n1: Wrote chunk"));
    const std::string path = PLUGINS + ".crp";
    EXPECT_EQ(readFile(path), "xy");
    check("uploadPlugin", "0: uploadPlugin\n0: Finalising CRP plugin upload\n" + GUARD,
          {{"", "",
            "^scanContainerPluginsDir\njson 200 {\"filename\":\".crp\"}\n0: Finished uploading CRP plugin " + path +
                "\n6: CRP plugin '" + path + "' uploaded. A system reboot is required for it to be loaded."}});
}

TEST_F(ManagedFiles, DeleteTellsWhatItMet) {
    check("deleteComposeFile", "BadRequest 400: Compose file name must be provided",
          {{"", "", "^"}, {";name=", "", "^"}});
    writeFile(COMPOSE + "full/file", "");
    writeFile(COMPOSE + "file", "");
    writeFile(COMPOSE + "../beside", "");
    fs::create_directories(COMPOSE + "empty");
    fs::create_symlink("nowhere", COMPOSE + "dangling");
    fs::create_symlink("full", COMPOSE + "link");
    const std::pair<std::string, std::string> rows[] = {
        {"file/below", "NotFound 404: File '" + COMPOSE + "file/below' not found"},
        {"dangling", "NotFound 404: File '" + COMPOSE + "dangling' not found"},
        {"full", "InternalServerError 500: Failed to delete file '" + COMPOSE + "full': Directory not empty"},
        {"file", "empty 0"},
        {"empty", "empty 0"},
        {"link", "empty 0"},
        {"../beside", "empty 0"},
    };
    for (const auto& [name, answer] : rows) {
        check("deleteComposeFile;name=" + name,
              "0: deleteComposeFile\n0: Deleting compose file '" + name + "'\n" + GUARD, {{"", "", "^" + answer}});
        EXPECT_EQ(fs::exists(COMPOSE + name), name == "full");
    }
    EXPECT_TRUE(fs::exists(COMPOSE + "full/file") && fs::is_symlink(COMPOSE + "dangling"));
}

TEST_F(ManagedFiles, DeletedPluginLeavesTheConfigurationToo) {
    const std::string path = PLUGINS + "abc.crp";
    const std::string begun = "0: deletePlugin\n0: Deleting CRP plugin 'abc.crp'\n" + GUARD;
    const std::string ended =
        "scanContainerPluginsDir\n6: CRP plugin '" + path + "' deleted. A system reboot is required.";
    const auto checkDelete = [&](const std::string& journal) {
        check("deletePlugin;name=abc.crp", begun, {{"", "", "^" + journal + ended}});
    };
    checkDelete("NotFound 404: File '" + path + "' not found\nforget abc.crp\n");
    writeFile(path, "");
    checkDelete("empty 0\nforget abc.crp\n");
    writeFile(path, "");
    world().pluginCode = 4;
    checkDelete("empty 0\nforget abc.crp\n3: Failed to update plugin deactivation config for 'abc.crp'\n");
    writeFile(path + "/full", "");
    checkDelete("InternalServerError 500: Failed to delete file '" + path + "': Directory not empty\n3: Plugin file '" +
                path + "' still exists after deleteFile\n");

    const std::string noName =
        "^Rejected plugin delete with empty file name\nBadRequest 400: Plugin file name must be provided";
    const auto noPlugin = [](const std::string& file) {
        const std::string reason = "ile '" + file + "' is not a valid .crp plugin file.";
        return "^f" + reason + "\nBadRequest 400: F" + reason;
    };
    check("deletePlugin", "0: deletePlugin\n4: ",
          {{"", "", noName},
           {";name=", "", noName},
           {";name=crp", "", noPlugin("crp")},
           {";name=a.CRP", "", noPlugin("a.CRP")}});
}

TEST_F(ManagedFiles, PluginIsListedActivatedAndDeactivated) {
    world().plugins = {{"plugins", {1, 2}}, {"other", true}};
    check("listPlugins", "0: listPlugins\n0: Listing CRP plugins\n" + GUARD + "listPlugins\njson 200 ",
          {{"", "", "^{\"plugins\":[1,2],\"other\":true}\n0: Finished listing CRP plugins (2)"}});
    world().plugins = json::object();
    EXPECT_THAT(call("listPlugins"), EndsWith("\njson 200 {}\n0: Finished listing CRP plugins (0)"));

    const std::string incomplete = "BadRequest 400: Plugin name and version must be provided";
    const std::string noName = "^4: Rejected plugin activation request with empty name or version\n" + incomplete;
    const std::string mustContain = "^BadRequest 400: Request body must contain 'activate' (boolean)";
    const std::string mustBeBoolean = "^BadRequest 400: 'activate' must be a boolean";
    check("activatePlugin", "0: activatePlugin\n",
          {{R"(;name=p;body={"activate":true})", "", noName},
           {";name=p;pluginVersion=", "", noName},
           {";name=;pluginVersion=1", "", noName},
           {";name=p;pluginVersion=1", "", mustContain},
           {";name=p;pluginVersion=1;body={}", "", mustContain},
           {";name=p;pluginVersion=1;body=\"activate\"", "", mustContain},
           {R"(;name=p;pluginVersion=1;body={"activate":"true"})", "", mustBeBoolean},
           {R"(;name=p;pluginVersion=1;body={"activate":1})", "", mustBeBoolean}});

    const std::string plugin = "plugin name='p' version='1.2'\n";
    const auto answer = [](const std::string& isDeactivated, const std::string& message) {
        return R"(json 200 {"name":"p","version":"1.2","isDeactivated":)" + isDeactivated + R"(,"message":")" +
               message + "\"}";
    };
    const std::string activated = answer("false", "Plugin activated successfully") + "\n0: Activated " + plugin +
                                  "6: Reboot the system to activate plugin: name='p' version='1.2'";
    const std::string deactivated = answer("true", "Plugin deactivated successfully") + "\n0: Deactivated " + plugin +
                                    "6: Reboot the system to deactivate plugin: name='p' version='1.2'";
    const std::tuple<std::string, int, std::string> outcomes[] = {
        {"true", 0, activated},
        {"true", 7, activated},
        {"false", -1, deactivated},
        {"true", 1, answer("false", "Plugin was already activated")},
        {"false", 1, answer("true", "Plugin was already deactivated")},
        {"false", 2, incomplete},
        {"false", 3, "NotFound 404: Plugin does not exist"},
        {"false", 4, "InternalServerError 500: Failed to update plugin deactivation config"},
    };
    for (const auto& [activate, code, journal] : outcomes) {
        world().pluginCode = code;
        const bool isOn = activate == "true";
        check("activatePlugin;name=p;pluginVersion=1.2;body={\"activate\":" + activate + "}",
              "0: activatePlugin\n0: " + (isOn ? "Activating "s : "Deactivating "s) + plugin + GUARD +
                  (isOn ? "" : "de") + "activate p 1.2\n1: Plugin config update result code: " + std::to_string(code) +
                  "\n",
              {{"", "", "^" + journal}});
    }
}
