// Compose files, certificates and plugins: what is listed, uploaded and deleted, and in which words.
#include <fcntl.h>
#include <sys/stat.h>

#include "tests/operations/Harness.h"

using namespace KxNCre;
using namespace KxNTests;
namespace fs = std::filesystem;

namespace {

const std::string CERTS = "/mnt/cfdrive/containers/certs";
const std::string COMPOSE = "/userstorage1/container_rte/utilities/compose-files";
const std::string PLUGINS = "/userstorage1/container_rte/plugins";

class ManagedFiles : public Operations {
protected:
    ManagedFiles() {
        fs::remove_all("/mnt/cfdrive");
        fs::remove_all("/userstorage1/container_rte");
    }
};

/// A directory that is listed: the journal up to the number of its files, what stands around them, and its name.
struct Directory {
    KxEEndpoint endpoint;
    std::string path, begun, found, before, after, messageName;
};

const Directory DIRECTORIES[] = {
    {ENDPOINT_LIST_CERTS, CERTS, expected("\n0: listCerts\n0: Listing TLS certificate files\n<guard>\n"),
     " TLS certificate file(s)\n", "json 200 {\"certs\":", "}\n", "certificate directory"},
    {ENDPOINT_LIST_COMPOSE_FILES, COMPOSE,
     expected("\n0: listComposeFiles\n0: Listing Docker compose files\n<guard>\n"), " compose file(s)\n", "json 200 ",
     "\n", "compose-files directory"},
};

TEST_F(ManagedFiles, ListHoldsRegularFilesWithLinksFollowed) {
    for (const Directory& directory : DIRECTORIES) {
        SCOPED_TRACE(directory.path);
        const auto listed = [&](int count, const std::string& files) {
            return directory.begun + "0: Found " + std::to_string(count) + directory.found + directory.before + files +
                   directory.after;
        };
        EXPECT_EQ(call(directory.endpoint), listed(0, "[]")) << "missing directory";

        fs::create_directories(directory.path + "/subdirectory");
        fs::create_symlink("nowhere", directory.path + "/dangling");
        mkfifo((directory.path + "/fifo").c_str(), 0600);
        const std::string target = directory.path + "/../target";
        writeFile(target, "12345");
        const timespec times[2] = {{1700000000, 900000000}, {1700000000, 900000000}};
        utimensat(AT_FDCWD, target.c_str(), times, 0);
        fs::create_symlink("../target", directory.path + "/.link");
        EXPECT_EQ(call(directory.endpoint), listed(1, R"([{"fileName":".link","size":5,"modified":1700000000}])"));
    }
}

TEST_F(ManagedFiles, DirectoryThatCannotBeReadIsAnsweredInItsWords) {
    const std::string failed = "error 500 InternalServerError: Failed to ";
    for (const Directory& directory : DIRECTORIES) {
        fs::create_directories(fs::path(directory.path).parent_path());
        fs::create_symlink(directory.path, directory.path);
        EXPECT_EQ(call(directory.endpoint), directory.begun + failed + "access " + directory.messageName +
                                                ": Too many levels of symbolic links\n");
        fs::remove(directory.path);
        writeFile(directory.path, "");
    }
    // A file in the place of the directory exists but cannot be opened as one.
    EXPECT_EQ(call(ENDPOINT_LIST_CERTS),
              DIRECTORIES[0].begun + failed + "iterate certificate directory: Not a directory\n");
    EXPECT_EQ(call(ENDPOINT_LIST_COMPOSE_FILES), DIRECTORIES[1].begun + "0: Found 0 compose file(s)\njson 200 []\n");
}

/// A kind of certificate file: its operations, their name without the verb, and how each text calls it.
struct Kind {
    KxEEndpoint upload, remove;
    std::string operation, fileName, logName, missingName, deleteName;
};

const Kind KINDS[] = {
    {ENDPOINT_UPLOAD_CERTIFICATE, ENDPOINT_DELETE_CERTIFICATE, "Certificate", "server.crt", "TLS certificate",
     "TLS certificate", "CA certificate"},
    {ENDPOINT_UPLOAD_PRIVATE_KEY, ENDPOINT_DELETE_PRIVATE_KEY, "PrivateKey", "server.key", "TLS private key",
     "private key", "TLS private key"},
    {ENDPOINT_UPLOAD_CA_CERTIFICATE, ENDPOINT_DELETE_CA_CERTIFICATE, "CaCertificate", "ca.crt", "CA certificate",
     "CA certificate", "CA certificate"},
};

TEST_F(ManagedFiles, CertificatesAreKeptUnderTheirFixedNames) {
    for (const Kind& kind : KINDS) {
        SCOPED_TRACE(kind.fileName);
        const std::string path = CERTS + "/" + kind.fileName;
        const std::string begun =
            expected("\n0: upload" + kind.operation + "\n0: Uploading " + kind.logName + "\n<guard>\n");
        const std::string refused = begun + "error 400 BadRequest: No " + kind.missingName + " file was uploaded\n";

        world().journal.clear();
        EXPECT_EQ(chunk(kind.upload, "", "x"), -1);
        EXPECT_EQ(chunk(kind.upload, nullptr, "x"), -1);
        const std::string rejected = "4: No file name provided for " + kind.logName + " upload\n";
        EXPECT_EQ(world().journal, rejected + rejected);
        EXPECT_EQ(call(kind.upload), refused);

        writeFile(path, "from before, for everybody to read");
        ASSERT_EQ(chunk(kind.upload, "mine.pem", "first, and longer"), 0);
        call(kind.upload);
        ASSERT_EQ(chunk(kind.upload, "other.pem", "sec"), 0);
        ASSERT_EQ(chunk(kind.upload, nullptr, "ond", 3), 0);
        EXPECT_EQ(call(kind.upload), begun + "json 200 {\"filename\":\"" + kind.fileName + "\"}\n0: " + kind.logName +
                                         " uploaded successfully\n");
        EXPECT_EQ(readFile(path), "second");
        EXPECT_EQ((fs::status(path).permissions() & fs::perms::others_read) == fs::perms::none,
                  kind.fileName == "server.key");
        EXPECT_EQ(call(kind.upload), refused);

        const std::string deleting =
            expected("\n0: delete" + kind.operation + "\n0: Deleting " + kind.deleteName + "\n<guard>\n");
        EXPECT_EQ(call(kind.remove), deleting + "empty 0\n");
        EXPECT_FALSE(fs::exists(path));
        EXPECT_EQ(call(kind.remove), deleting + "error 404 NotFound: File '" + path + "' not found\n");
    }
}

TEST_F(ManagedFiles, ComposeFilesAreUploadedAndDeleted) {
    const std::string begun = expected("\n0: uploadComposeFile\n0: Finalising compose file upload\n<guard>\n");
    const std::string refused = begun + "error 400 BadRequest: No compose YAML file was uploaded\n";
    world().journal.clear();
    EXPECT_EQ(chunk(ENDPOINT_UPLOAD_COMPOSE_FILE, "", "x"), -1);
    EXPECT_EQ(world().journal, "4: Rejected compose file upload with empty file name\n");
    EXPECT_EQ(call(ENDPOINT_UPLOAD_COMPOSE_FILE), refused);

    ASSERT_EQ(chunk(ENDPOINT_UPLOAD_COMPOSE_FILE, "any name", "x"), 0);
    EXPECT_EQ(call(ENDPOINT_UPLOAD_COMPOSE_FILE), begun +
                                                      "json 200 {\"filename\":\"any name\"}\n"
                                                      "0: Finished uploading compose file '" +
                                                      COMPOSE + "/any name'\n");

    ASSERT_EQ(chunk(ENDPOINT_UPLOAD_COMPOSE_FILE, "gone", "x"), 0);
    fs::remove(COMPOSE + "/gone");
    EXPECT_EQ(call(ENDPOINT_UPLOAD_COMPOSE_FILE), refused);

    // A status that cannot be read is raised.
    ASSERT_EQ(chunk(ENDPOINT_UPLOAD_COMPOSE_FILE, "loop", "x"), 0);
    fs::remove(COMPOSE + "/loop");
    fs::create_symlink("loop", COMPOSE + "/loop");
    EXPECT_THROW(call(ENDPOINT_UPLOAD_COMPOSE_FILE), fs::filesystem_error);

    world().isEnabled = false;
    for (const auto& values : {std::vector<Value>{}, {name("")}}) {
        EXPECT_EQ(call(ENDPOINT_DELETE_COMPOSE_FILE, values),
                  "error 400 BadRequest: Compose file name must be provided\n");
    }
}

TEST_F(ManagedFiles, DeleteTellsWhatItMet) {
    fs::create_directories(COMPOSE + "/empty");
    writeFile(COMPOSE + "/full/file", "");
    writeFile(COMPOSE + "/file", "");
    writeFile(COMPOSE + "/../beside", "");
    fs::create_symlink("nowhere", COMPOSE + "/dangling");
    fs::create_symlink("loop", COMPOSE + "/loop");
    fs::create_symlink("full", COMPOSE + "/link");
    const auto deleted = [&](const std::string& file) {
        const std::string begun =
            expected("\n0: deleteComposeFile\n0: Deleting compose file '" + file + "'\n<guard>\n");
        const std::string journal = call(ENDPOINT_DELETE_COMPOSE_FILE, {name(file.c_str())});
        EXPECT_EQ(journal.substr(0, begun.size()), begun);
        return journal.substr(begun.size());
    };
    for (const std::string file : {"missing", "dangling", "loop", "file/below"}) {
        EXPECT_EQ(deleted(file), "error 404 NotFound: File '" + COMPOSE + "/" + file + "' not found\n");
    }
    EXPECT_EQ(deleted("full"),
              "error 500 InternalServerError: Failed to delete file '" + COMPOSE + "/full': Directory not empty\n");
    for (const std::string file : {"file", "empty", "link", "../beside"}) {
        EXPECT_EQ(deleted(file), "empty 0\n");
        EXPECT_FALSE(fs::exists(COMPOSE + "/" + file));
    }
    EXPECT_TRUE(fs::exists(COMPOSE + "/full/file"));
    EXPECT_TRUE(fs::is_symlink(COMPOSE + "/dangling"));
}

TEST_F(ManagedFiles, PluginsAreUploadedByTheirExtension) {
    const std::string noName = "4: Rejected plugin upload with empty file name\n";
    const std::string invalid = "4: Invalid file type uploaded, only .crp files are accepted\n";
    world().journal.clear();
    for (const char* fileName : {static_cast<const char*>(nullptr), "", "crp", "plugin.CRP", "plugin.crp.gz"}) {
        EXPECT_EQ(chunk(ENDPOINT_UPLOAD_PLUGIN, fileName, "x"), -1);
    }
    EXPECT_EQ(world().journal, noName + noName + invalid + invalid + invalid);
    const std::string begun = expected("\n0: uploadPlugin\n0: Finalising CRP plugin upload\n<guard>\n");
    const std::string refused = begun +
                                "error 400 BadRequest: No CRP plugin file was uploaded. Make sure the name of the file "
                                "is not empty and has a .crp extension\n";
    EXPECT_EQ(call(ENDPOINT_UPLOAD_PLUGIN), refused);

    world().journal.clear();
    ASSERT_EQ(chunk(ENDPOINT_UPLOAD_PLUGIN, ".crp", "x"), 0);
    ASSERT_EQ(chunk(ENDPOINT_UPLOAD_PLUGIN, "no plugin", "y", 1), 0) << "later names do not matter";
    const std::string path = PLUGINS + "/.crp";
    EXPECT_THAT(world().journal, StartsWith("0: Starting CRP plugin upload '.crp'\n1: Wrote chunk"));
    EXPECT_EQ(readFile(path), "xy");
    EXPECT_EQ(call(ENDPOINT_UPLOAD_PLUGIN), begun +
                                                "scanContainerPluginsDir\njson 200 {\"filename\":\".crp\"}\n"
                                                "0: Finished uploading CRP plugin " +
                                                path + "\n6: CRP plugin '" + path +
                                                "' uploaded. A system reboot is required for it to be loaded.\n");
    world().plugins = {{"plugins", {1, 2}}, {"other", true}};
    EXPECT_EQ(call(ENDPOINT_LIST_PLUGINS), expected("\n0: listPlugins\n0: Listing CRP plugins\n<guard>\nlistPlugins\n"
                                                    "json 200 {\"plugins\":[1,2],\"other\":true}\n"
                                                    "0: Finished listing CRP plugins (2)\n"));
}

TEST_F(ManagedFiles, DeletedPluginLeavesTheConfigurationToo) {
    const std::string path = PLUGINS + "/abc.crp";
    const std::string begun = expected("\n0: deletePlugin\n0: Deleting CRP plugin 'abc.crp'\n<guard>\n");
    const std::string ended =
        "scanContainerPluginsDir\n6: CRP plugin '" + path + "' deleted. A system reboot is required.\n";
    const std::string dropped = "removePluginFromConfigByFileName abc.crp\n";
    const auto deleted = [&] { return call(ENDPOINT_DELETE_PLUGIN, {name("abc.crp")}); };

    EXPECT_EQ(deleted(), begun + "error 404 NotFound: File '" + path + "' not found\n" + dropped + ended);
    writeFile(path, "");
    EXPECT_EQ(deleted(), begun + "empty 0\n" + dropped + ended);
    writeFile(path, "");
    world().pluginCode = 4;
    EXPECT_EQ(deleted(),
              begun + "empty 0\n" + dropped + "3: Failed to update plugin deactivation config for 'abc.crp'\n" + ended);
    writeFile(path + "/full", "");
    EXPECT_EQ(deleted(), begun + "error 500 InternalServerError: Failed to delete file '" + path +
                             "': Directory not empty\n3: Plugin file '" + path + "' still exists after deleteFile\n" +
                             ended);

    world().isEnabled = false;
    const std::string refused = "0: deletePlugin\n4: ";
    const std::string noName =
        refused +
        "Rejected plugin delete with empty file name\nerror 400 BadRequest: Plugin file name must be provided\n";
    EXPECT_EQ(call(ENDPOINT_DELETE_PLUGIN), noName);
    EXPECT_EQ(call(ENDPOINT_DELETE_PLUGIN, {name("")}), noName);
    for (const std::string file : {"crp", "a.CRP"}) {
        const std::string reason = "ile '" + file + "' is not a valid .crp plugin file.\n";
        EXPECT_EQ(call(ENDPOINT_DELETE_PLUGIN, {name(file.c_str())}),
                  refused + "f" + reason + "error 400 BadRequest: F" + reason);
    }
}

TEST_F(ManagedFiles, PluginIsActivatedAndDeactivated) {
    const std::vector<Value> plugin = {name("p"), text("pluginVersion", "1.2")};
    const std::string named = " plugin name='p' version='1.2'\n";
    const std::string begun = "0: activatePlugin\n";
    const std::string incomplete = "error 400 BadRequest: Plugin name and version must be provided\n";
    const std::string noName =
        begun + "4: Rejected plugin activation request with empty name or version\n" + incomplete;
    const std::string mustContain = begun + "error 400 BadRequest: Request body must contain 'activate' (boolean)\n";
    const std::string mustBeBoolean = begun + "error 400 BadRequest: 'activate' must be a boolean\n";
    EXPECT_EQ(call(ENDPOINT_ACTIVATE_PLUGIN, {name("p")}, json{{"activate", true}}), noName);
    EXPECT_EQ(call(ENDPOINT_ACTIVATE_PLUGIN, {name("p"), text("pluginVersion", "")}), noName);
    EXPECT_EQ(call(ENDPOINT_ACTIVATE_PLUGIN, {name(""), text("pluginVersion", "1")}), noName);
    checkBodies(ENDPOINT_ACTIVATE_PLUGIN, plugin,
                {
                    {std::nullopt, mustContain},
                    {json::object(), mustContain},
                    {json("activate"), mustContain},
                    {json{{"activate", "true"}}, mustBeBoolean},
                    {json{{"activate", 1}}, mustBeBoolean},
                });

    const auto answer = [](const char* deactivated, const std::string& message) {
        return std::string(R"(json 200 {"name":"p","version":"1.2","isDeactivated":)") + deactivated +
               R"(,"message":")" + message + "\"}\n";
    };
    const std::string activated = answer("false", "Plugin activated successfully") + "0: Activated" + named +
                                  "6: Reboot the system to activate plugin: name='p' version='1.2'\n";
    const std::string deactivated = answer("true", "Plugin deactivated successfully") + "0: Deactivated" + named +
                                    "6: Reboot the system to deactivate plugin: name='p' version='1.2'\n";
    const struct {
        bool activate;
        int code;
        std::string journal;
    } outcomes[] = {
        {true, 0, activated},
        {true, 7, activated},
        {false, -1, deactivated},
        {true, 1, answer("false", "Plugin was already activated")},
        {false, 1, answer("true", "Plugin was already deactivated")},
        {false, 2, incomplete},
        {false, 3, "error 404 NotFound: Plugin does not exist\n"},
        {false, 4, "error 500 InternalServerError: Failed to update plugin deactivation config\n"},
    };
    for (const auto& [activate, code, journal] : outcomes) {
        world().pluginCode = code;
        EXPECT_EQ(call(ENDPOINT_ACTIVATE_PLUGIN, plugin, json{{"activate", activate}, {"other", 1}}),
                  expected("\n" + begun + (activate ? "0: Activating" : "0: Deactivating") + named + "<guard>\n" +
                           (activate ? "removePluginFromConfig" : "addPluginToConfig") +
                           " p 1.2\n1: Plugin config update result code: " + std::to_string(code) + "\n" + journal));
    }
}

}  // namespace
