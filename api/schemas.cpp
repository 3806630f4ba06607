#include "api/schemas.h"

// The texts are pasted together by the compiler: the library takes JSON text as a constant.
#define REFERENCE(name) "{\"$ref\":\"#/components/schemas/" name "\"}"
#define ARRAY_OF(name) "{\"type\":\"array\",\"items\":" REFERENCE(name) "}"

namespace KxNCre {

namespace {

using Answer = KxNTamberWebApi::KxSAnswerSchema;
using ParameterText = KxNTamberWebApi::KxSParameterText;

constexpr Answer END_OF_ANSWERS{0, nullptr, nullptr, nullptr};
constexpr ParameterText END_OF_TEXTS{nullptr, nullptr};

// Answers that many operations share.

constexpr Answer done(const char* description) {
    return {204, description, nullptr, nullptr};
}

constexpr Answer refused(int status, const char* description) {
    return {status, description, nullptr, nullptr};
}

constexpr KxNTamberWebApi::KxSNamedSchema NAMED[] = {
    {"Container",
     R"({"type":"object","description":"A container as Podman reports it; what Podman leaves out is left out",
"properties":{"Id":{"type":"string"},"Names":{"type":"array","items":{"type":"string"}},"Image":{"type":"string"},
"Created":{"type":"integer","description":"Seconds since the Unix epoch"},"State":{"type":"string"}}})"},
    {"ContainerList", R"({"type":"object","required":["containers"],
"properties":{"containers":{"type":"array","items":{"$ref":"#/components/schemas/Container"}}}})"},
    {"Image", R"({"type":"object","description":"An image as Podman reports it; what Podman leaves out is left out",
"properties":{"Id":{"type":"string"},"ParentId":{"type":"string"},
"RepoTags":{"type":["array","null"],"items":{"type":"string"}},
"RepoDigests":{"type":["array","null"],"items":{"type":"string"}},
"Containers":{"type":"integer","description":"How many containers use it"},
"Created":{"type":"integer","description":"Seconds since the Unix epoch"},
"Size":{"type":"integer","description":"Bytes"},"SharedSize":{"type":"integer","description":"Bytes"},
"Labels":{"type":["object","null"],"additionalProperties":{"type":"string"}}}})"},
    {"ImageList", R"({"type":"object","required":["images"],
"properties":{"images":{"type":"array","items":{"$ref":"#/components/schemas/Image"}}}})"},
    {"RemovedImage", R"({"type":"object","properties":{"Untagged":{"type":"string"},"Deleted":{"type":"string"}}})"},
    {"Settings", R"({"type":"object","required":["tcp_port","cores_num","max_allowed_cores_num","service_state"],
"properties":{"tcp_port":{"type":"integer","format":"int32","description":"TCP port of Podman"},
"cores_num":{"type":"integer","format":"int32","description":"CPUs that containers may use; 0 or less for all"},
"max_allowed_cores_num":{"type":"integer","minimum":0},
"service_state":{"type":"string","enum":["uninitialized","initialized","started","stopped","failed","unknown"]}}})"},
    {"SettingsChange", R"({"type":"object","description":"What is left out stays as it is","minProperties":1,
"properties":{"tcp_port":{"type":"integer","format":"int32","description":"TCP port of Podman"},
"cores_num":{"type":"integer","format":"int32","description":"CPUs that containers may use; 0 or less for all"}}})"},
    {"SavedSettings", R"({"type":"object","required":["tcp_port","cores_num"],
"properties":{"tcp_port":{"type":"integer","format":"int32"},"cores_num":{"type":"integer","format":"int32"}}})"},
    {"Enabled", R"({"type":"object","required":["enabled"],"properties":{"enabled":{"type":"boolean"}}})"},
    {"Plugin", R"({"type":"object","required":["name","version","fileName","size","modified","isDeactivated"],
"properties":{"name":{"type":"string"},"version":{"type":"string"},"fileName":{"type":"string"},
"size":{"type":"integer","description":"Bytes"},
"modified":{"type":"integer","description":"Seconds since the Unix epoch"},"isDeactivated":{"type":"boolean"}}})"},
    {"PluginList", R"({"type":"object","required":["plugins"],
"properties":{"plugins":{"type":"array","items":{"$ref":"#/components/schemas/Plugin"}}}})"},
    {"PluginActivation", R"({"type":"object","required":["activate"],
"properties":{"activate":{"type":"boolean","description":"false deactivates the plugin"}}})"},
    {"PluginChange", R"({"type":"object","required":["name","version","isDeactivated","message"],
"properties":{"name":{"type":"string"},"version":{"type":"string"},"isDeactivated":{"type":"boolean"},
"message":{"type":"string"}}})"},
    {"ManagedFile", R"({"type":"object","required":["fileName","size","modified"],
"properties":{"fileName":{"type":"string"},"size":{"type":"integer","description":"Bytes"},
"modified":{"type":"integer","description":"Seconds since the Unix epoch"}}})"},
    {"CertificateList", R"({"type":"object","required":["certs"],
"properties":{"certs":{"type":"array","items":{"$ref":"#/components/schemas/ManagedFile"}}}})"},
    {"UploadedFile", R"({"type":"object","required":["filename"],
"properties":{"filename":{"type":"string","description":"The name under which the file is kept"}}})"},
    {"ComposeResult", R"({"type":"object","required":["Message"],
"properties":{"Message":{"type":"string","description":"What happened, for people"},"Name":{"type":"string"},
"Command":{"type":"string"},"ExitCode":{"type":"integer"},
"Output":{"type":"string","description":"What the compose tool wrote"}}})"},
    {nullptr, nullptr},
};

constexpr ParameterText LIST_CONTAINERS_PARAMETERS[] = {
    {"all", "true lists stopped containers too"},
    END_OF_TEXTS,
};
constexpr Answer LIST_CONTAINERS_ANSWERS[] = {
    {200, "The containers", REFERENCE("ContainerList"),
     R"({"containers":[{"Id":"4f2a","Names":["/web"],"Image":"localhost/web:1","Created":1700000000,"State":"running"}]})"},
    refused(500, "The container service is disabled or not started, or Podman failed: see the detail"),
    END_OF_ANSWERS,
};

constexpr ParameterText DELETE_CONTAINER_PARAMETERS[] = {
    {"name", "Name or id of the container"},
    {"force", "true deletes the container also when it runs"},
    END_OF_TEXTS,
};
constexpr Answer DELETE_CONTAINER_ANSWERS[] = {
    done("Deleted"),
    refused(400, "The container's name is missing"),
    refused(404, "There is no container of that name"),
    refused(409, "The container runs, and force was not given"),
    refused(500, "The container service is disabled or not started, or Podman failed: see the detail"),
    END_OF_ANSWERS,
};

constexpr ParameterText START_CONTAINER_PARAMETERS[] = {
    {"name", "Name or id of the container"},
    END_OF_TEXTS,
};
constexpr Answer START_CONTAINER_ANSWERS[] = {
    done("Started"),
    refused(304, "It was already running"),
    refused(400, "The container's name is missing"),
    refused(404, "There is no container of that name"),
    refused(500, "The container service is disabled or not started, or Podman failed: see the detail"),
    END_OF_ANSWERS,
};

constexpr ParameterText STOP_CONTAINER_PARAMETERS[] = {
    {"name", "Name or id of the container"},
    {"timeout", "Seconds to wait before the container is killed"},
    END_OF_TEXTS,
};
constexpr Answer STOP_CONTAINER_ANSWERS[] = {
    done("Stopped"),
    refused(304, "It was already stopped"),
    refused(400, "The container's name is missing"),
    refused(404, "There is no container of that name"),
    refused(500, "The container service is disabled or not started, or Podman failed: see the detail"),
    END_OF_ANSWERS,
};

constexpr ParameterText GET_CONTAINER_LOGS_PARAMETERS[] = {
    {"name", "Name or id of the container"},
    {"stdout", "false leaves out the standard output"},
    {"stderr", "false leaves out the standard error"},
    {"since", "Only what was logged from this time on, in seconds since the Unix epoch"},
    {"until", "Only what was logged before this time, in seconds since the Unix epoch"},
    {"timestamps", "true puts the time before each line"},
    {"tail", "How many lines of the past to begin with, or all"},
    END_OF_TEXTS,
};
constexpr Answer GET_CONTAINER_LOGS_ANSWERS[] = {
    {101, "The connection becomes a WebSocket: the log in text messages, then a closing text", nullptr, nullptr},
    refused(400, "The container's name is missing"),
    refused(404, "There is no container of that name"),
    refused(500, "Podman failed: see the detail"),
    END_OF_ANSWERS,
};

constexpr Answer LIST_IMAGES_ANSWERS[] = {
    {200, "The images", REFERENCE("ImageList"),
     R"({"images":[{"Id":"sha256:9b1c","ParentId":"","RepoTags":["localhost/web:1"],"RepoDigests":[],"Containers":1,"Created":1700000000,"Size":4300000,"SharedSize":0,"Labels":null}]})"},
    refused(500, "The container service is disabled or not started, or Podman failed: see the detail"),
    END_OF_ANSWERS,
};

constexpr Answer UPLOAD_IMAGE_ANSWERS[] = {
    done("Loaded"),
    refused(400,
            "No file was uploaded, or it is not a tar archive (plain, or compressed with gzip, bzip2, xz or zstd)"),
    refused(500, "The container service is disabled or not started, or Podman failed: see the detail"),
    END_OF_ANSWERS,
};

constexpr ParameterText REMOVE_IMAGE_PARAMETERS[] = {
    {"name", "Name or id of the image; slashes may be written as they are"},
    END_OF_TEXTS,
};
constexpr Answer REMOVE_IMAGE_ANSWERS[] = {
    {200, "What Podman removed", ARRAY_OF("RemovedImage"), R"([{"Untagged":"localhost/web:1"},{"Deleted":"9b1c"}])"},
    refused(400, "The image's name is missing"),
    refused(404, "There is no image of that name"),
    refused(409, "The image is in use"),
    refused(500, "The container service is disabled or not started, or Podman failed: see the detail"),
    END_OF_ANSWERS,
};

constexpr Answer GET_SETTINGS_ANSWERS[] = {
    {200, "The settings", REFERENCE("Settings"),
     R"({"tcp_port":2376,"cores_num":2,"max_allowed_cores_num":4,"service_state":"started"})"},
    END_OF_ANSWERS,
};

constexpr Answer PATCH_SETTINGS_ANSWERS[] = {
    {200, "The settings as they are now", REFERENCE("SavedSettings"), R"({"tcp_port":2376,"cores_num":1})"},
    refused(400, "The body is missing, names no setting or holds a bad value: see the detail"),
    refused(500, "The settings file could not be written"),
    END_OF_ANSWERS,
};

constexpr Answer GET_ENABLE_ANSWERS[] = {
    {200, "Whether it is enabled", REFERENCE("Enabled"), R"({"enabled":true})"},
    END_OF_ANSWERS,
};

constexpr Answer PATCH_ENABLE_ANSWERS[] = {
    {200, "Whether it is enabled now", REFERENCE("Enabled"), R"({"enabled":true})"},
    refused(400, "The body does not say whether to enable"),
    refused(500, "The user storage cannot be used or a file could not be written: see the detail"),
    END_OF_ANSWERS,
};

constexpr Answer LIST_PLUGINS_ANSWERS[] = {
    {200, "The plugins", REFERENCE("PluginList"),
     R"({"plugins":[{"name":"gpu","version":"1.0","fileName":"gpu_1.0.crp","size":1024,"modified":1700000000,"isDeactivated":false}]})"},
    refused(500, "The container service is disabled or not started, or the plugins cannot be read: see the detail"),
    END_OF_ANSWERS,
};

constexpr Answer UPLOAD_PLUGIN_ANSWERS[] = {
    {200, "The plugin is kept", REFERENCE("UploadedFile"), R"({"filename":"gpu_1.0.crp"})"},
    refused(400, "No file was uploaded whose name ends in .crp"),
    refused(500, "The container service is disabled or not started, or the upload failed: see the detail"),
    END_OF_ANSWERS,
};

constexpr ParameterText DELETE_PLUGIN_PARAMETERS[] = {
    {"name", "File name of the plugin"},
    END_OF_TEXTS,
};
constexpr Answer DELETE_PLUGIN_ANSWERS[] = {
    done("Deleted"),
    refused(400, "The name is missing or does not end in .crp"),
    refused(404, "There is no such file"),
    refused(500, "The container service is disabled or not started, or the file could not be deleted: see the detail"),
    END_OF_ANSWERS,
};

constexpr ParameterText ACTIVATE_PLUGIN_PARAMETERS[] = {
    {"name", "Name of the plugin"},
    {"pluginVersion", "Version of the plugin"},
    END_OF_TEXTS,
};
constexpr Answer ACTIVATE_PLUGIN_ANSWERS[] = {
    {200, "Changed, or already so", REFERENCE("PluginChange"),
     R"({"name":"gpu","version":"1.0","isDeactivated":true,"message":"Plugin deactivated successfully"})"},
    refused(400, "Name or version is missing, or the body does not say whether to activate"),
    refused(404, "There is no such plugin"),
    refused(500,
            "The container service is disabled or not started, or the plugin configuration could not be written: see "
            "the detail"),
    END_OF_ANSWERS,
};

constexpr ParameterText COMPOSE_START_PARAMETERS[] = {
    {"name", "File name of the compose file"},
    END_OF_TEXTS,
};
constexpr Answer COMPOSE_START_ANSWERS[] = {
    {200, "Done, or nothing was to be done", REFERENCE("ComposeResult"),
     R"({"Message":"Done","Name":"web.yml","Command":"start","ExitCode":0,"Output":""})"},
    {201, "Something was created", REFERENCE("ComposeResult"), nullptr},
    refused(400, "The name is bad, or the file is no compose file"),
    refused(404, "There is no such compose file"),
    refused(500, "The container service is disabled or not started, or the command failed: see the detail"),
    END_OF_ANSWERS,
};

constexpr Answer COMPOSE_STOP_ANSWERS[] = {
    {200, "Done, or nothing was to be done", REFERENCE("ComposeResult"),
     R"({"Message":"Done","Name":"web.yml","Command":"stop","ExitCode":0,"Output":""})"},
    {201, "Something was created", REFERENCE("ComposeResult"), nullptr},
    refused(400, "The name is bad, or the file is no compose file"),
    refused(404, "There is no such compose file"),
    refused(500, "The container service is disabled or not started, or the command failed: see the detail"),
    END_OF_ANSWERS,
};

constexpr Answer COMPOSE_CREATE_ANSWERS[] = {
    {200, "Done, or nothing was to be done", REFERENCE("ComposeResult"),
     R"({"Message":"Done","Name":"web.yml","Command":"create","ExitCode":0,"Output":""})"},
    {201, "Something was created", REFERENCE("ComposeResult"), nullptr},
    refused(400, "The name is bad, or the file is no compose file"),
    refused(404, "There is no such compose file"),
    refused(500, "The container service is disabled or not started, or the command failed: see the detail"),
    END_OF_ANSWERS,
};

constexpr Answer COMPOSE_REMOVE_ANSWERS[] = {
    {200, "Done, or nothing was to be done", REFERENCE("ComposeResult"),
     R"({"Message":"Done","Name":"web.yml","Command":"remove","ExitCode":0,"Output":""})"},
    {201, "Something was created", REFERENCE("ComposeResult"), nullptr},
    refused(400, "The name is bad, or the file is no compose file"),
    refused(404, "There is no such compose file"),
    refused(500, "The container service is disabled or not started, or the command failed: see the detail"),
    END_OF_ANSWERS,
};

constexpr Answer LIST_COMPOSE_FILES_ANSWERS[] = {
    {200, "The compose files", ARRAY_OF("ManagedFile"), R"([{"fileName":"web.yml","size":120,"modified":1700000000}])"},
    refused(500, "The container service is disabled or not started, or the directory cannot be read: see the detail"),
    END_OF_ANSWERS,
};

constexpr Answer UPLOAD_COMPOSE_FILE_ANSWERS[] = {
    {200, "The file is kept", REFERENCE("UploadedFile"), R"({"filename":"web.yml"})"},
    refused(400, "No file was uploaded"),
    refused(500, "The container service is disabled or not started, or the upload failed: see the detail"),
    END_OF_ANSWERS,
};

constexpr Answer DELETE_COMPOSE_FILE_ANSWERS[] = {
    done("Deleted"),
    refused(400, "The file's name is missing"),
    refused(404, "There is no such file"),
    refused(500, "The container service is disabled or not started, or the file could not be deleted: see the detail"),
    END_OF_ANSWERS,
};

constexpr Answer LIST_CERTS_ANSWERS[] = {
    {200, "The files", REFERENCE("CertificateList"),
     R"({"certs":[{"fileName":"server.crt","size":1200,"modified":1700000000}]})"},
    refused(500, "The container service is disabled or not started, or the directory cannot be read: see the detail"),
    END_OF_ANSWERS,
};

constexpr Answer UPLOAD_CERTIFICATE_ANSWERS[] = {
    {200, "The file is kept under its fixed name", REFERENCE("UploadedFile"), R"({"filename":"server.crt"})"},
    refused(400, "No file was uploaded"),
    refused(500, "The container service is disabled or not started, or the upload failed: see the detail"),
    END_OF_ANSWERS,
};

constexpr Answer DELETE_CERTIFICATE_ANSWERS[] = {
    done("Deleted"),
    refused(404, "There is no such file"),
    refused(500, "The container service is disabled or not started, or the file could not be deleted: see the detail"),
    END_OF_ANSWERS,
};

constexpr Answer UPLOAD_PRIVATE_KEY_ANSWERS[] = {
    {200, "The file is kept under its fixed name", REFERENCE("UploadedFile"), R"({"filename":"server.key"})"},
    refused(400, "No file was uploaded"),
    refused(500, "The container service is disabled or not started, or the upload failed: see the detail"),
    END_OF_ANSWERS,
};

constexpr Answer DELETE_PRIVATE_KEY_ANSWERS[] = {
    done("Deleted"),
    refused(404, "There is no such file"),
    refused(500, "The container service is disabled or not started, or the file could not be deleted: see the detail"),
    END_OF_ANSWERS,
};

constexpr Answer UPLOAD_CA_CERTIFICATE_ANSWERS[] = {
    {200, "The file is kept under its fixed name", REFERENCE("UploadedFile"), R"({"filename":"ca.crt"})"},
    refused(400, "No file was uploaded"),
    refused(500, "The container service is disabled or not started, or the upload failed: see the detail"),
    END_OF_ANSWERS,
};

constexpr Answer DELETE_CA_CERTIFICATE_ANSWERS[] = {
    done("Deleted"),
    refused(404, "There is no such file"),
    refused(500, "The container service is disabled or not started, or the file could not be deleted: see the detail"),
    END_OF_ANSWERS,
};

constexpr KxNTamberWebApi::KxSOperationSchema OPERATIONS[] = {
    {"listContainers", "List containers", nullptr, LIST_CONTAINERS_PARAMETERS, LIST_CONTAINERS_ANSWERS},
    {"deleteContainer", "Delete a container", nullptr, DELETE_CONTAINER_PARAMETERS, DELETE_CONTAINER_ANSWERS},
    {"startContainer", "Start a container", nullptr, START_CONTAINER_PARAMETERS, START_CONTAINER_ANSWERS},
    {"stopContainer", "Stop a container", nullptr, STOP_CONTAINER_PARAMETERS, STOP_CONTAINER_ANSWERS},
    {"getContainerLogs", "Follow a container's log over a WebSocket", nullptr, GET_CONTAINER_LOGS_PARAMETERS,
     GET_CONTAINER_LOGS_ANSWERS},
    {"listImages", "List container images", nullptr, nullptr, LIST_IMAGES_ANSWERS},
    {"uploadImage", "Upload and load a container image", nullptr, nullptr, UPLOAD_IMAGE_ANSWERS},
    {"removeImage", "Remove a container image", nullptr, REMOVE_IMAGE_PARAMETERS, REMOVE_IMAGE_ANSWERS},
    {"getSettings", "Read the settings", nullptr, nullptr, GET_SETTINGS_ANSWERS},
    {"patchSettings", "Change the settings", REFERENCE("SettingsChange"), nullptr, PATCH_SETTINGS_ANSWERS},
    {"getEnable", "Tell whether the container service is enabled", nullptr, nullptr, GET_ENABLE_ANSWERS},
    {"patchEnable", "Enable or disable the container service", REFERENCE("Enabled"), nullptr, PATCH_ENABLE_ANSWERS},
    {"listPlugins", "List plugins", nullptr, nullptr, LIST_PLUGINS_ANSWERS},
    {"uploadPlugin", "Upload a plugin, loaded at the next boot", nullptr, nullptr, UPLOAD_PLUGIN_ANSWERS},
    {"deletePlugin", "Delete a plugin, gone at the next boot", nullptr, DELETE_PLUGIN_PARAMETERS,
     DELETE_PLUGIN_ANSWERS},
    {"activatePlugin", "Activate or deactivate a plugin from the next boot on", REFERENCE("PluginActivation"),
     ACTIVATE_PLUGIN_PARAMETERS, ACTIVATE_PLUGIN_ANSWERS},
    {"composeStart", "Start the containers of a compose file", nullptr, COMPOSE_START_PARAMETERS,
     COMPOSE_START_ANSWERS},
    {"composeStop", "Stop the containers of a compose file", nullptr, COMPOSE_START_PARAMETERS, COMPOSE_STOP_ANSWERS},
    {"composeCreate", "Create the containers of a compose file", nullptr, COMPOSE_START_PARAMETERS,
     COMPOSE_CREATE_ANSWERS},
    {"composeRemove", "Remove the containers of a compose file", nullptr, COMPOSE_START_PARAMETERS,
     COMPOSE_REMOVE_ANSWERS},
    {"listComposeFiles", "List compose files", nullptr, nullptr, LIST_COMPOSE_FILES_ANSWERS},
    {"uploadComposeFile", "Upload a compose file", nullptr, nullptr, UPLOAD_COMPOSE_FILE_ANSWERS},
    {"deleteComposeFile", "Delete a compose file", nullptr, COMPOSE_START_PARAMETERS, DELETE_COMPOSE_FILE_ANSWERS},
    {"listCerts", "List the TLS files", nullptr, nullptr, LIST_CERTS_ANSWERS},
    {"uploadCertificate", "Upload the TLS certificate", nullptr, nullptr, UPLOAD_CERTIFICATE_ANSWERS},
    {"deleteCertificate", "Delete the TLS certificate", nullptr, nullptr, DELETE_CERTIFICATE_ANSWERS},
    {"uploadPrivateKey", "Upload the TLS private key", nullptr, nullptr, UPLOAD_PRIVATE_KEY_ANSWERS},
    {"deletePrivateKey", "Delete the TLS private key", nullptr, nullptr, DELETE_PRIVATE_KEY_ANSWERS},
    {"uploadCaCertificate", "Upload the CA certificate", nullptr, nullptr, UPLOAD_CA_CERTIFICATE_ANSWERS},
    {"deleteCaCertificate", "Delete the CA certificate", nullptr, nullptr, DELETE_CA_CERTIFICATE_ANSWERS},
    {nullptr, nullptr, nullptr, nullptr, nullptr},
};

}  // namespace

const KxNTamberWebApi::KxSApiSchemas SCHEMAS{NAMED, OPERATIONS};

}  // namespace KxNCre
