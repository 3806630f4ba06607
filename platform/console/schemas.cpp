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
    {"ContainerStats",
     R"({"type":"object","description":"Counters of the kernel since the container's start; null where the container has none of its own","required":["Time","CpuNanoseconds","MemoryBytes","MemoryLimitBytes","Processes",
"ReadBytes","WrittenBytes","ReceivedBytes","SentBytes"],
"properties":{"Time":{"type":"string","format":"date-time"},
"CpuNanoseconds":{"type":["integer","null"],"description":"CPU time of all its processes"},
"MemoryBytes":{"type":["integer","null"],"description":"In use, without files that are only cached"},
"MemoryLimitBytes":{"type":["integer","null"],"description":"null: no limit"},
"Processes":{"type":["integer","null"],"description":"And threads"},
"ReadBytes":{"type":["integer","null"],"description":"From block devices"},
"WrittenBytes":{"type":["integer","null"],"description":"To block devices"},
"ReceivedBytes":{"type":["integer","null"]},"SentBytes":{"type":["integer","null"]}}})"},
    {"Storage", R"({"type":"object","required":["volumes","images"],
"properties":{"volumes":{"type":"array","items":{"type":"object","required":["What","Path","FreeBytes","TotalBytes"],
"properties":{"What":{"type":"string","description":"\"containers and images\", \"uploads\", through which uploaded files go, or \"configuration\""},"Path":{"type":"string"},
"FreeBytes":{"type":"integer"},"TotalBytes":{"type":"integer"}}}},
"images":{"type":"object","required":["Count","Bytes","UnusedBytes"],"properties":{"Count":{"type":"integer"},
"Bytes":{"type":"integer","description":"The sum of their sizes; what images share is counted for each"},
"UnusedBytes":{"type":"integer","description":"Of those that no container was made from"}}}}})"},
    {"AuditList", R"({"type":"object","required":["entries","last"],
"properties":{"entries":{"type":"array","items":{"type":"object","required":["seq","time","peer","identity","role",
"method","route","name","status","milliseconds","previous"],
"properties":{"seq":{"type":"integer"},"time":{"type":"string","format":"date-time"},"peer":{"type":"string"},
"identity":{"type":"string"},"role":{"type":"string"},"method":{"type":"string"},"route":{"type":"string"},
"name":{"type":"string"},"status":{"type":"integer"},"milliseconds":{"type":"integer"},
"refusals":{"type":"integer","description":"Where the entry stands for so many refusals of the peer together"},
"previous":{"type":"string","description":"SHA-256 of the entry before, hexadecimal"}}}},
"last":{"type":"integer","description":"Number of the last entry of all"}}})"},
    {"HealthPart", R"({"type":"object","required":["state","reason","since"],
"properties":{"state":{"enum":["ok","degraded","failed"],"description":"degraded: it works, but something is to be done"},
"reason":{"type":["string","null"]},"since":{"type":"string","format":"date-time"}}})"},
    {"Health", R"({"type":"object","required":["status"],"description":"Who has shown no token gets the status alone",
"properties":{"status":{"enum":["ok","degraded"],"description":"degraded: a part has failed"},
"podman":{"$ref":"#/components/schemas/HealthPart"},"storage":{"$ref":"#/components/schemas/HealthPart"},
"certificate":{"allOf":[{"$ref":"#/components/schemas/HealthPart"},{"type":"object","required":["NotAfter","days"],
"properties":{"NotAfter":{"type":["string","null"],"format":"date-time","description":"null: there is none"},
"days":{"type":["integer","null"]}}}]},
"audit":{"$ref":"#/components/schemas/HealthPart"},
"uptime":{"type":"integer","description":"Seconds since the service's start"},"host":{"type":"string"},
"identity":{"type":"object","required":["name","role"],"properties":{"name":{"type":"string"},
"role":{"enum":["viewer","operator","administrator"]}}}}})"},
    {"LogMessage",
     R"({"type":"object","description":"Entries of the log, a gap where some could not be read any more, or the container's state","oneOf":[{"type":"object","required":["entries","cursor"],
"properties":{"entries":{"type":"array","items":{"type":"object","required":["time","stream","text"],
"properties":{"time":{"type":"string","format":"date-time","description":"With nanoseconds"},
"stream":{"enum":["out","err"]},
"text":{"type":"string","description":"A line with its newline, or a piece of a long one without"}}}},
"cursor":{"type":"string","description":"Stands for the place behind the message"}}},
{"type":"object","required":["gap","cursor"],"properties":{"gap":{"type":"object","required":["bytes","reason"],
"properties":{"bytes":{"type":["integer","null"],"description":"null: not known"},"reason":{"type":"string"}}},
"cursor":{"type":"string"}}},
{"type":"object","required":["state","exitCode"],"properties":{"state":{"enum":["running","exited","removed"]},
"exitCode":{"type":["integer","null"],"description":"Of a container that has exited"}}}]})"},
    {"Event", R"({"type":"object","description":"Something that happened, or that everything is to be asked for anew",
"oneOf":[{"type":"object","required":["seq","time","kind","action","name"],
"properties":{"seq":{"type":"integer","description":"Ever increasing"},"time":{"type":"string","format":"date-time"},
"kind":{"enum":["container","image","compose","plugin","settings","certificate"]},
"action":{"type":"string","description":"Of a container create, start, die, pause, unpause, remove, rename, restart, kill or oom; of an image add, tag, untag or remove; of what the service keeps upload, delete, change, enable or disable; of a compose file's containers create, start, stop or remove"},"name":{"type":"string"}}},
{"type":"object","required":["relist"],"properties":{"relist":{"const":true}}}]})"},
    {nullptr, nullptr},
};

constexpr ParameterText EVENTS_PARAMETERS[] = {
    {"after",
     "The last number that the client has got: what followed comes first. 0 for all that is kept, the last "
     "4096 events; nothing for what happens from now on"},
    END_OF_TEXTS,
};

constexpr Answer FOLLOW_EVENTS_ANSWERS[] = {
    {101, "The connection becomes a WebSocket with the subprotocol kx.events.v1: each message is an event",
     REFERENCE("Event"), nullptr},
    END_OF_ANSWERS,
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

constexpr Answer CONTAINER_STATS_ANSWERS[] = {
    {200, "The counters", REFERENCE("ContainerStats"), nullptr},
    NO_NAME,
    NO_SUCH_CONTAINER,
    refused(409, "The container does not run"),
    CONTAINER_FAILED,
    END_OF_ANSWERS,
};

constexpr Answer FOLLOW_LOG_ENTRIES_ANSWERS[] = {
    {101,
     "The connection becomes a WebSocket with the subprotocol kx.entries.v1. It goes on over ends and starts of the "
     "container and of Podman; a client that comes back with the last cursor that it has got has lost nothing and gets "
     "nothing twice, or gets a gap",
     REFERENCE("LogMessage"), nullptr},
    refused(400, "The container's name is missing, or cursor or tail is malformed"),
    NO_SUCH_CONTAINER,
    refused(500, "Podman failed: see the detail"),
    END_OF_ANSWERS,
};

constexpr ParameterText GET_AUDIT_PARAMETERS[] = {
    {"after", "Only entries with a larger number"},
    {"limit", "So many entries at most; 100 unless it is given, and never more than 1000"},
    END_OF_TEXTS,
};

constexpr Answer GET_AUDIT_ANSWERS[] = {
    {200, "The entries, oldest first", REFERENCE("AuditList"), nullptr},
    refused(400, "after or limit is out of bounds"),
    refused(500, "The record cannot be read: see the detail"),
    END_OF_ANSWERS,
};

constexpr Answer GET_HEALTH_ANSWERS[] = {
    {200, "All parts work", REFERENCE("Health"), R"({"status":"ok"})"},
    {503, "A part has failed", REFERENCE("Health"), R"({"status":"degraded"})"},
    END_OF_ANSWERS,
};

constexpr Answer GET_METRICS_ANSWERS[] = {
    {200, "The figures in the text format of Prometheus", R"({"type":"string"})", nullptr,
     "text/plain; version=0.0.4; charset=utf-8"},
    END_OF_ANSWERS,
};

constexpr Answer GET_STORAGE_ANSWERS[] = {
    {200, "The room", REFERENCE("Storage"), nullptr},
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
    {"containerStats", "Tell what a container uses", nullptr, CONTAINER_PARAMETERS, CONTAINER_STATS_ANSWERS},
    {"followLogEntries", "Follow a container's log over a WebSocket, in entries", nullptr, CONTAINER_PARAMETERS,
     FOLLOW_LOG_ENTRIES_ANSWERS},
    {"getAudit", "Read the record of changes and refusals", nullptr, GET_AUDIT_PARAMETERS, GET_AUDIT_ANSWERS},
    {"getHealth", "Tell whether the service and what it needs work", nullptr, nullptr, GET_HEALTH_ANSWERS},
    {"getMetrics", "Tell figures for Prometheus", nullptr, nullptr, GET_METRICS_ANSWERS},
    {"getStorage", "Tell how much room there is", nullptr, nullptr, GET_STORAGE_ANSWERS},
    {"followEvents", "Follow over a WebSocket what happens", nullptr, EVENTS_PARAMETERS, FOLLOW_EVENTS_ANSWERS},
    {nullptr, nullptr, nullptr, nullptr, nullptr},
};

}  // namespace

const KxNTamberWebApi::KxSApiSchemas SCHEMAS{NAMED, DESCRIPTIONS};

}  // namespace KxNConsole
