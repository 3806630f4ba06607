#include "platform/console/schemas.h"

// The texts are pasted together by the compiler: the library takes JSON text as a constant.
#define REFERENCE(name) "{\"$ref\":\"#/components/schemas/" name "\"}"

namespace KxNConsole {

namespace {

using Answer = KxNTamberWebApi::KxSAnswerSchema;
using ParameterText = KxNTamberWebApi::KxSParameterText;

constexpr Answer END_OF_ANSWERS{0, nullptr, nullptr, nullptr};
constexpr ParameterText END_OF_TEXTS{nullptr, nullptr};

constexpr Answer refused(int status, const char* description) {
    return {status, description, nullptr, nullptr};
}

constexpr Answer NO_SUCH_CONTAINER = refused(404, "There is no container of that name");
constexpr Answer NO_NAME = refused(400, "The container's name is missing");
constexpr Answer CONTAINER_FAILED =
    refused(500, "The container service is disabled or not started, or Podman failed: see the detail");

constexpr KxNTamberWebApi::KxSNamedSchema NAMED[] = {
    {"ContainerState", R"({"type":"object",
"required":["Status","StartedAt","FinishedAt","ExitCode","OOMKilled","Error","Health","RestartCount"],
"properties":{"Status":{"type":["string","null"],"description":"created, running, paused, exited, …"},
"StartedAt":{"type":["string","null"],"format":"date-time","description":"null: never"},
"FinishedAt":{"type":["string","null"],"format":"date-time","description":"null: never"},
"ExitCode":{"type":["integer","null"]},"OOMKilled":{"type":["boolean","null"]},
"Error":{"type":"string","description":"Why it could not be started; empty for no reason"},
"Health":{"type":["string","null"],"description":"healthy, unhealthy or starting; null without a health check"},
"RestartCount":{"type":["integer","null"],"description":"How often its restart policy has started it again"}}})"},
    {"PublishedPort", R"({"type":"object","required":["ContainerPort","Protocol","HostIp","HostPort"],
"properties":{"ContainerPort":{"type":["integer","null"]},"Protocol":{"type":"string"},
"HostIp":{"type":["string","null"],"description":"null: all addresses"},
"HostPort":{"type":["integer","null"],"description":"null: not published"}}})"},
    {"ContainerMount", R"({"type":"object","required":["Source","Destination","ReadOnly"],
"properties":{"Source":{"type":["string","null"]},"Destination":{"type":["string","null"]},
"ReadOnly":{"type":"boolean"}}})"},
    {"ContainerDetails", R"({"type":"object","description":"A container, without its environment",
"required":["Id","Name","Image","ImageId","Command","Created","State","RestartPolicy","Ports","Mounts","Networks",
"Compose","Log"],
"properties":{"Id":{"type":["string","null"]},"Name":{"type":"string"},"Image":{"type":["string","null"]},
"ImageId":{"type":["string","null"]},"Command":{"type":"array","items":{"type":"string"}},
"Created":{"type":["string","null"],"format":"date-time"},"State":{"$ref":"#/components/schemas/ContainerState"},
"RestartPolicy":{"type":"string"},
"Ports":{"type":"array","items":{"$ref":"#/components/schemas/PublishedPort"}},
"Mounts":{"type":"array","items":{"$ref":"#/components/schemas/ContainerMount"}},
"Networks":{"type":"array","items":{"type":"string"},"description":"Their names"},
"Compose":{"type":["object","null"],"description":"What it was made from; null for none","required":["File","Service"],
"properties":{"File":{"type":"string","description":"The compose file, as the list of compose files names it"},
"Service":{"type":"string"}}},
"Log":{"type":"object","required":["Driver","Bytes"],"properties":{"Driver":{"type":["string","null"]},
"Bytes":{"type":["integer","null"],"description":"Size of the log's file; null where there is none"}}}}})"},
    {nullptr, nullptr},
};

constexpr ParameterText CONTAINER_PARAMETERS[] = {
    {"name", "Name or id of the container"},
    {"timeout", "Seconds that the container gets to end by itself, 10 unless it was made with others"},
    {"tail", "So many lines from the end of the log come first; \"all\" is the default"},
    {"since", "Only lines from that time on, in seconds since the Unix epoch"},
    {"cursor", "Goes on behind the last message that had this cursor, in place of tail and since"},
    END_OF_TEXTS,
};

constexpr Answer INSPECT_CONTAINER_ANSWERS[] = {
    {200, "The container", REFERENCE("ContainerDetails"), nullptr},
    NO_NAME,
    NO_SUCH_CONTAINER,
    CONTAINER_FAILED,
    END_OF_ANSWERS,
};

constexpr Answer RESTART_CONTAINER_ANSWERS[] = {
    {204, "Restarted", nullptr, nullptr}, NO_NAME, NO_SUCH_CONTAINER, CONTAINER_FAILED, END_OF_ANSWERS,
};

constexpr KxNTamberWebApi::KxSOperationSchema DESCRIPTIONS[] = {
    {"inspectContainer", "Look at one container", nullptr, CONTAINER_PARAMETERS, INSPECT_CONTAINER_ANSWERS},
    {"restartContainer", "Restart a container, or start one that has ended", nullptr, CONTAINER_PARAMETERS,
     RESTART_CONTAINER_ANSWERS},
    {nullptr, nullptr, nullptr, nullptr, nullptr},
};

}  // namespace

const KxNTamberWebApi::KxSApiSchemas SCHEMAS{NAMED, DESCRIPTIONS};

}  // namespace KxNConsole
