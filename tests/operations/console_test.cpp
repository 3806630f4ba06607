#include "platform/console/console.h"

#include "platform/console/containers/counters.h"
#include "service/paths.h"
#include "tests/operations/Harness.h"

using namespace KxNTests;
using namespace KxNContainer;
namespace fs = std::filesystem;

constexpr std::int64_t DAY = 24LL * 3600 * 1000;

class Console : public Operations {
protected:
    Console() { served = &console; }

    /// The health report, `milliseconds` after the last.
    json look(std::int64_t milliseconds = 3000) {
        world().monotonicMilliseconds += milliseconds;
        world().utcMilliseconds += milliseconds;
        const std::string told = call("getHealth");
        const std::size_t begin = told.rfind("json ");
        json answer = json::parse(told.substr(begin + 9));
        answer["code"] = told.substr(begin + 5, 3);
        return answer;
    }

    KxNConsole::Console console{*KxCContainer::GetInstance()};
};

TEST_F(Console, AContainerIsDescribedByWhatPodmanKnowsAndNothingElse) {
    const std::string log = "/run/container.log";
    writeFile(log, "12345");
    const std::string known =
        R"({"Id":"1f","Name":"/web","Image":"sha","Path":"/bin/sh","Args":["-c","x"],"Created":"2026-01-02T03:04:05Z",)"
        R"("State":{"Status":"exited","StartedAt":"2026-01-02T03:04:06Z","FinishedAt":"0001-01-01T00:00:00Z",)"
        R"("ExitCode":3,"OOMKilled":true,"Error":"no","Health":{"Status":"healthy"}},"RestartCount":4,)"
        R"("Config":{"Image":"busybox","Env":["PASSWORD=x"],"Labels":{"com.docker.compose.service":"db",)"
        R"("com.docker.compose.project.config_files":")" +
        KxNContainerPaths::COMPOSE_FILES_PATH + R"(a.yml"}},)" +
        R"("HostConfig":{"RestartPolicy":{"Name":"always"},"LogConfig":{"Type":"k8s-file"}},)"
        R"("Mounts":[{"Source":"/a","Destination":"/b","RW":false},{"Source":"/c","Destination":"/d","RW":true}],)"
        R"("NetworkSettings":{"Ports":{"80/tcp":[{"HostIp":"::1","HostPort":"8080"},{"HostIp":"","HostPort":"81"}],)"
        R"("53/udp":null,"7":[]},"Networks":{"n1":{},"n2":{}}},"LogPath":")" +
        log + "\"}";
    const std::string told =
        R"(^json 200 {"Id":"1f","Name":"web","Image":"busybox","ImageId":"sha","Command":["/bin/sh","-c","x"],)"
        R"("Created":"2026-01-02T03:04:05Z","State":{"Status":"exited","StartedAt":"2026-01-02T03:04:06Z",)"
        R"("FinishedAt":null,"ExitCode":3,"OOMKilled":true,"Error":"no","Health":"healthy","RestartCount":4},)"
        R"("RestartPolicy":"always","Ports":[{"ContainerPort":80,"Protocol":"tcp","HostIp":"::1","HostPort":8080},)"
        R"({"ContainerPort":80,"Protocol":"tcp","HostIp":null,"HostPort":81},)"
        R"({"ContainerPort":53,"Protocol":"udp","HostIp":null,"HostPort":null},)"
        R"({"ContainerPort":7,"Protocol":"tcp","HostIp":null,"HostPort":null}],)"
        R"("Mounts":[{"Source":"/a","Destination":"/b","ReadOnly":true},)"
        R"({"Source":"/c","Destination":"/d","ReadOnly":false}],"Networks":["n1","n2"],)"
        R"("Compose":{"File":"a.yml","Service":"db"},"Log":{"Driver":"k8s-file","Bytes":5}})";
    const std::string unknown =
        R"(^json 200 {"Id":null,"Name":"","Image":null,"ImageId":null,"Command":[],"Created":null,"State":)"
        R"({"Status":null,"StartedAt":null,"FinishedAt":null,"ExitCode":null,"OOMKilled":null,"Error":"",)"
        R"("Health":null,"RestartCount":null},"RestartPolicy":"no","Ports":[],"Mounts":[],"Networks":[],)"
        R"("Compose":null,"Log":{"Driver":null,"Bytes":null}})";
    const std::string unreadable = "^InternalServerError 500: Error occurred while inspecting container 'a/b': ";
    check("inspectContainer;name=a/b", GUARD + "GET /containers/a%2Fb/json [Accept: application/json]\n",
          {{"", "200 " + known, told},
           {"", R"(200 {"LogPath":"/run","Config":7})", unknown},
           {"", "200 []", unreadable + "Podman's answer cannot be read: "},
           {"", "404", "^NotFound 404: Container 'a/b' does not exist"},
           {"", "500 why",
            "^4: Podman failed while inspecting container 'a/b' with HTTP 500: why\n" + unreadable.substr(1) + "why"}});
}

TEST_F(Console, ARestartHasItsTimeAndItsRefusals) {
    const std::string begun = GUARD + "0: Restarting container 'w-.~_1'\nPOST /containers/w-.~_1/restart";
    check("restartContainer;name=w-.~_1", begun,
          {{"", "204", "^\nempty 0\n0: Container 'w-.~_1' restarted successfully"},
           {";timeout=0", "404", "^?t=0\nNotFound 404: Container 'w-.~_1' does not exist"},
           {";timeout=7", "200 x",
            "^?t=7\n4: Podman failed while restarting container 'w-.~_1' with HTTP 200: x\nInternalServerError 500: "
            "Error occurred while restarting container 'w-.~_1': x"}});
    for (const std::string operation : {"inspectContainer", "restartContainer", "followLogEntries"}) {
        const std::string guard = operation == "inspectContainer" ? GUARD : "";
        check(operation, guard + "BadRequest 400: Container name must be provided", {{";name=", "", "^"}});
    }
    world().status = KxCContainer::STOPPED;
    const std::string stopped = GUARD + "InternalServerError 500: Container service is not started";
    world().isEnabled = true;
    for (const std::string operation : {"inspectContainer", "restartContainer", "containerStats"}) {
        check(operation + ";name=a", stopped, {{"", "", "^"}});
    }
    check("getStorage", stopped, {{"", "", "^"}});
    world().isEnabled = false;
    check("getStorage", "enabled?\nInternalServerError 500: Container service is disabled", {{"", "", "^"}});
}

TEST_F(Console, CountersAreThoseOfAContainerThatRuns) {
    const std::string asked = GUARD + "GET /containers/w/json [Accept: application/json]\n";
    const std::string own = std::to_string(::getpid());
    const std::string idle = "^Conflict 409: Container 'w' is not running";
    check("containerStats;name=w", asked,
          {{"", R"(200 {"Id":"no such","State":{"Pid":)" + own + "}}",
            R"(^json 200 {"Time":"2027-01-15T08:00:00.000Z","CpuNanoseconds":null,"MemoryBytes":null,)"
            R"("MemoryLimitBytes":null,"Processes":null,"ReadBytes":null,"WrittenBytes":null,"ReceivedBytes":null,)"
            R"("SentBytes":null})"},
           {"", R"(200 {"Id":"x","State":{"Pid":0}})", idle},
           {"", R"(200 {"Id":"x","State":{"Pid":-1}})", idle},
           {"", R"(200 {"Id":"x","State":{"Pid":99999999}})", idle},
           {"", R"(200 {"Id":7,"State":{"Pid":)" + own + "}}", idle},
           {"", R"(200 {"Id":"x","State":{"Pid":"1"}})", idle}});
}

static std::string numbersOf(const KxNConsole::Counters& all) {
    std::string text;
    for (const auto& one : {all.cpuNanoseconds, all.memoryBytes, all.memoryLimitBytes, all.processes, all.readBytes,
                            all.writtenBytes, all.receivedBytes, all.sentBytes}) {
        text += (text.empty() ? "" : " ") + (one ? std::to_string(*one) : "-");
    }
    return text;
}

TEST_F(Console, TheKernelsFilesAreReadInBothOfItsForms) {
    const TemporaryDirectory directory;
    const std::string process = directory.path("process");
    const std::string unified = directory.path("unified");
    const std::string separate = directory.path("separate");
    writeFile(
        process + "/cgroup",
        "9:name=systemd:/x/c-abc\n8:cpuset:/c-abc/x\n2:cpu,cpuacct:/c-abc/inner\n3:memory:/other\n3:memory:/c-abc\n"
        "4:pids:/c-abc\n5:blkio:/c-abc\n0::/other\n0::/c-abc/inner/init.scope\n");
    writeFile(process + "/net/dev",
              "Inter-| Receive | Transmit\n face |bytes\n    lo: 9 1 1 1 1 1 1 1 9 1\n"
              "  eth0:100 1 2 3 4 5 6 7 30 8\n  eth1: 20 1 2 3 4 5 6 7 4 8\n");
    fs::create_directories(process + "/ns");
    fs::create_symlink("net:[1]", process + "/ns/net");
    writeFile(unified + "/cgroup.controllers", "");
    const std::pair<std::string, std::string> files[] = {
        {unified + "/c-abc/cpu.stat", "user_usec 1\nusage_usec 7\n"},
        {unified + "/c-abc/memory.current", "5000\n"},
        {unified + "/c-abc/memory.stat", "anon 1\ninactive_file 1000\n"},
        {unified + "/c-abc/memory.max", "max\n"},
        {unified + "/c-abc/pids.current", "3\n"},
        {unified + "/c-abc/io.stat", "8:0 rbytes=1 wbytes=20 rios=5\n8:16 rbytes=2 wbytes=30\n"},
        {separate + "/cpuacct/c-abc/cpuacct.usage", "7000\n"},
        {separate + "/memory/c-abc/memory.usage_in_bytes", "5000\n"},
        {separate + "/memory/c-abc/memory.stat",
         "hierarchical_memory_limit 8000\ninactive_file 7\ntotal_inactive_file 1000\n"},
        {separate + "/pids/c-abc/pids.current", "3\n"},
        {separate + "/blkio/c-abc/blkio.throttle.io_service_bytes_recursive",
         "8:0 Read 1\n8:0 Write 20\n8:0 Total 21\n8:16 Read 2\n8:16 Write 30\nTotal 53\n"},
    };
    for (const auto& [path, text] : files) {
        writeFile(path, text);
    }
    for (const std::string& root : {unified, separate}) {
        const auto read = KxNConsole::readCounters(process, "abc", root);
        ASSERT_TRUE(read);
        EXPECT_EQ(numbersOf(*read), root == unified ? "7000 4000 - 3 3 50 120 34" : "7000 4000 8000 3 3 50 120 34");
    }
    EXPECT_FALSE(KxNConsole::readCounters(directory.path("none"), "abc", unified)) << "it has ended";
    EXPECT_FALSE(KxNConsole::readCounters(process, "bcd", unified)->processes) << "another container's";
    writeFile(separate + "/memory/c-abc/memory.stat", "hierarchical_memory_limit 9223372036854771712\n");
    writeFile(separate + "/cpuacct/c-abc/cpuacct.usage", "7x\n");
    fs::remove(process + "/ns/net");
    fs::create_symlink(fs::read_symlink("/proc/self/ns/net"), process + "/ns/net");
    const auto read = KxNConsole::readCounters(process, "abc", separate);
    EXPECT_EQ(numbersOf(*read), "- 5000 - 3 3 50 - -");
}

TEST_F(Console, StorageTellsWhatImagesThatNobodyUsesTake) {
    const std::string asked = GUARD + "GET /images/json [Accept: application/json]\n";
    const std::string failed = "^InternalServerError 500: Error occurred while looking at the storage: ";
    check("getStorage", asked, {{"", "500 why", failed + "why"}, {"", "200 {", failed + "incomplete JSON at byte 1"}});
    fs::create_directories("/mnt/cfdrive");
    int asks = 0;
    world().duringPodman = [&] {
        world().podman.body = asks++ == 0 ? R"([{"Id":"a","Size":5},{"Id":"b","Size":7},{"Size":1}])"
                                          : R"([{"ImageID":"b"},{"ImageID":"b"},{}])";
    };
    const std::string told = call("getStorage");
    EXPECT_THAT(told, StartsWith(asked + "GET /containers/json?all=true [Accept: application/json]\njson 200 "));
    const json answer = json::parse(told.substr(told.rfind("\njson 200 ") + 10));
    EXPECT_EQ(answer["images"].dump(), R"({"Count":3,"Bytes":13,"UnusedBytes":5})");
    for (const json& volume : answer["volumes"]) {
        if (volume["Path"] == "/userstorage1") {
            EXPECT_EQ(volume["What"], "uploads");
            EXPECT_EQ(volume["TotalBytes"], 64 << 20);
            EXPECT_LE(volume["FreeBytes"], 64 << 20);
        }
    }
    EXPECT_EQ(answer["volumes"].back()["What"], "configuration");
}

TEST_F(Console, HealthTellsWhichPartIsNotWellAndSinceWhen) {
    EXPECT_EQ(look().dump(), R"({"status":"ok","code":"200"})");
    role = KxNTamberWebApi::ROLE_OPERATOR;
    json report = look(2999);
    EXPECT_EQ(report["podman"].dump(), R"({"state":"ok","reason":null,"since":"1970-01-01T00:00:01.000Z"})");
    EXPECT_EQ(report["storage"].dump(), R"({"state":"ok","reason":null,"since":"2027-01-15T08:00:03.000Z"})");
    EXPECT_EQ(report["certificate"].dump(),
              R"({"state":"ok","reason":null,"since":"2027-01-15T08:00:03.000Z","NotAfter":null,"days":null})");
    EXPECT_EQ(report["identity"].dump(), R"({"name":"ann","role":"operator"})");
    EXPECT_EQ(report["uptime"], 5);
    EXPECT_NE(report["host"], "");

    // told: the state and the reason
    const std::tuple<std::function<void()>, const char*, const char*, const char*> rows[] = {
        {[] { world().isEnabled = false; }, "podman", "degraded Container service is disabled", "200"},
        {[] { world().status = KxCContainer::FAILED; }, "podman", "failed Container service is not started", "503"},
        {[] { world().podmanState.isAnswering = false; }, "podman", "failed Podman does not answer", "503"},
        {[] { world().storageProblem = "full"; }, "storage", "failed full", "503"},
        {[] { writeFile("/userstorage1/large", std::string(60 << 20, 'x')); }, "storage",
         "degraded Less than 10 % of the storage for uploads (/userstorage1) is free", "200"},
        {[] { world().audit.problem = "no room"; }, "audit", "failed no room", "503"},
    };
    for (const auto& [provoke, part, told, code] : rows) {
        world().isEnabled = true;
        world().status = KxCContainer::STARTED;
        world().podmanState.isAnswering = true;
        world().storageProblem.clear();
        world().audit.problem.clear();
        fs::remove("/userstorage1/large");
        look();
        provoke();
        EXPECT_EQ(look(2000)[part]["state"], "ok") << "it was looked at just before";
        report = look(1000);
        EXPECT_EQ(report[part]["state"].get<std::string>() + " " + report[part]["reason"].get<std::string>(), told);
        EXPECT_EQ(report["code"], code) << told;
        EXPECT_EQ(report["status"], report["code"] == "200" ? "ok" : "degraded");
        const json since = report[part]["since"];
        EXPECT_EQ(look()[part]["since"], since) << told;
    }
}

TEST_F(Console, ACertificateIsToldOfBeforeItsEnd) {
    const std::string file = KxNContainerPaths::CONTAINER_CERTS_DIR + "/server.crt";
    writeFile(file, "x");
    role = KxNTamberWebApi::ROLE_VIEWER;
    EXPECT_EQ(look()["certificate"]["NotAfter"], nullptr);
    const std::string made =
        "openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -days 100 -subj /CN=a"
        " -keyout /dev/null -out " +
        file + " 2>/dev/null";
    ASSERT_EQ(std::system(made.c_str()), 0);
    const std::int64_t now = std::time(nullptr) * 1000LL;
    const std::tuple<double, const char*, const char*, int> rows[] = {
        {69, "ok", "", 30},
        {70.5, "degraded", "The server's certificate ends soon", 29},
        {99.5, "degraded", "The server's certificate ends soon", 0},
        {101.5, "failed", "The server's certificate has ended", -1}};
    for (const auto& [days, state, reason, left] : rows) {
        world().utcMilliseconds = now + static_cast<std::int64_t>(days * DAY);
        const json part = look()["certificate"];
        EXPECT_EQ(part["state"], state);
        EXPECT_EQ(part["reason"], *reason != '\0' ? json(reason) : json());
        EXPECT_EQ(part["days"], left);
        EXPECT_EQ(part["since"] == part["NotAfter"], *state == 'f');
    }
    EXPECT_THAT(call("getMetrics"), HasSubstr("\nkx_certificate_remaining_seconds -1296"));
}

TEST_F(Console, AuditIsReadWithinItsBounds) {
    const std::string refused = "BadRequest 400: Query parameter 'after' must not be negative, and 'limit' at least 1";
    check("getAudit", "",
          {{"", "", "audit after 0 at most 100\ntext 200 {}"},
           {";after=7;limit=1", "", "audit after 7 at most 1\ntext 200 {}"},
           {";limit=1001", "", "audit after 0 at most 1000\ntext 200 {}"},
           {";after=-1", "", refused},
           {";limit=0", "", refused}});
    world().failing = {"audit"};
    check("getAudit", "audit after 0 at most 100\n",
          {{"", "", "^InternalServerError 500: Error occurred while reading the audit record: disk"}});
}

TEST_F(Console, MetricsTellOfRequestsContainersAndDevice) {
    console.observeTable(KxNCre::ENDPOINTS);
    const auto answered = [&](const char* operation, int status, std::chrono::nanoseconds duration) {
        console.onAnswered({operation != nullptr ? &endpointOf(operation) : nullptr, "web", status, duration, 5});
    };
    answered("startContainer", 204, 1ms);
    answered("startContainer", 204, 1'000'001ns);
    answered("startContainer", 418, 500s);
    answered(nullptr, 401, 1s);
    answered("followEvents", 101, 1s);
    answered("followEvents", 101, 1s);
    console.onStreamEnded(endpointOf("followEvents"));
    world().containers = {{"a", "running", 2}, {"q\"b\\s\nn\xff", "odd", 0}, {"c", "running", 1}};
    world().podmanState.restarts = 3;
    world().audit.lost = 6;
    const std::string text = call("getMetrics");
    const std::string started = R"({operation="startContainer",)";
    for (const std::string& line : {"kx_http_requests_total" + started + R"(status="204"} 2)",
                                    "kx_http_requests_total" + started + R"(status="599"} 1)",
                                    R"(kx_http_requests_total{operation="none",status="401"} 1)"s,
                                    "kx_http_request_duration_seconds_bucket" + started + R"(le="0.001"} 1)",
                                    "kx_http_request_duration_seconds_bucket" + started + R"(le="0.005"} 2)",
                                    "kx_http_request_duration_seconds_bucket" + started + R"(le="120"} 2)",
                                    "kx_http_request_duration_seconds_bucket" + started + R"(le="+Inf"} 3)",
                                    R"(kx_http_request_duration_seconds_count{operation="startContainer"} 3)"s,
                                    R"(kx_http_request_duration_seconds_sum{operation="startContainer"} 500.002)"s,
                                    R"(kx_http_refusals_total{status="401"} 1)"s,
                                    R"(kx_http_refusals_total{status="403"} 0)"s,
                                    R"(kx_streams{operation="followEvents"} 1)"s,
                                    R"(kx_streams{operation="getContainerLogs"} 0)"s,
                                    "kx_upload_bytes_total 30"s,
                                    "kx_log_gaps_total 0"s,
                                    "kx_podman_up 1"s,
                                    "kx_podman_restarts_total 3"s,
                                    R"(kx_containers{state="running"} 2)"s,
                                    R"(kx_containers{state="odd"} 1)"s,
                                    R"(kx_containers{state="paused"} 0)"s,
                                    R"(kx_container_starts_total{container="a"} 2)"s,
                                    "kx_container_starts_total{container=\"q\\\"b\\\\s\\nn\xEF\xBF\xBD\"} 0"s,
                                    "# TYPE kx_container_starts_total counter"s,
                                    R"(kx_storage_size_bytes{volume="uploads"} 67108864)"s,
                                    "kx_audit_lost_total 6"s,
                                    "kx_audit_failing 0"s,
                                    "process_threads "s,
                                    "process_start_time_seconds 1800000000"s}) {
        EXPECT_THAT(text, HasSubstr("\n" + line)) << line;
    }
    for (const std::string none : {R"(status="200")", "kx_http_request_duration_seconds_bucket{operation=\"getAudit",
                                   "kx_certificate_remaining_seconds", R"(kx_streams{operation="startContainer")"}) {
        EXPECT_THAT(text, Not(HasSubstr(none)));
    }
    const std::pair<std::string, double> own[] = {
        {"cpu_seconds_total", 0}, {"resident_memory_bytes", 1 << 20}, {"open_fds", 2}, {"max_fds", 100}};
    for (const auto& [name, least] : own) {
        EXPECT_GT(std::stod(text.substr(text.find("\nprocess_" + name + " ") + name.size() + 10)), least) << name;
    }
    world().audit.problem = "x";
    world().podmanState.isAnswering = false;
    EXPECT_THAT(call("getMetrics"), AllOf(HasSubstr("\nkx_audit_failing 1\n"), HasSubstr("\nkx_podman_up 0\n")));
}

TEST_F(Console, EventsAreThoseOfPodmanAndOfTheOperationsThatChangeSomething) {
    check("followEvents", "switch events WITH OTHER CALLBACKS\nsubprotocol kx.events.v1", {{"", "", "^"}});
    const auto answered = [&](const char* operation, int status) {
        console.onAnswered({operation != nullptr ? &endpointOf(operation) : nullptr, "n", status, 1ms, 0});
    };
    world().changes->takeChange({"container", "start", "web", 1000});
    for (const int status : {199, 300, 404, 500}) {
        answered("composeCreate", status);
    }
    answered("startContainer", 204);
    answered("getSettings", 200);
    answered(nullptr, 204);
    answered("composeCreate", 200);
    answered("deleteCertificate", 299);
    answered("patchEnable", 200);
    world().isEnabled = false;
    answered("patchEnable", 200);
    const auto event = [](int number, const std::string& rest) {
        return "sendText '{\"seq\":" + std::to_string(1'800'000'000'000'000 + number) + ",\"time\":\"" + rest +
               "\"}' -1\n";
    };
    const std::string all =
        event(1, R"(1970-01-01T00:00:01.000Z","kind":"container","action":"start","name":"web)") +
        event(2, R"(2027-01-15T08:00:00.000Z","kind":"compose","action":"create","name":"n)") +
        event(3, R"(2027-01-15T08:00:00.000Z","kind":"certificate","action":"delete","name":"certificate)") +
        event(4, R"(2027-01-15T08:00:00.000Z","kind":"settings","action":"enable","name":"service)") +
        event(5, R"(2027-01-15T08:00:00.000Z","kind":"settings","action":"disable","name":"service)");
    world().sendsLeft = 5;
    EXPECT_EQ(call("followEventsSetWebSocket;after=0"), all + "socket destroyed");
    world().sendsLeft = 1;
    EXPECT_EQ(call("followEventsSetWebSocket;after=1800000000000004"),
              all.substr(all.rfind("sendText")) + "socket destroyed");
    world().sendsLeft = 0;
    EXPECT_EQ(call("followEventsSetWebSocket"), "socket destroyed");

    world().sendsLeft = 1;
    std::atomic<bool> isOver{false};
    std::thread losing([&] {
        for (; !isOver; std::this_thread::sleep_for(1ms)) {
            world().changes->takeRelist();
        }
    });
    EXPECT_EQ(call("followEventsSetWebSocket"), "sendText '{\"relist\":true}' -1\nsocket destroyed");
    isOver = true;
    losing.join();
}

TEST_F(Console, LogEntriesAreAskedForAndTold) {
    const std::string asked = "GET /containers/w/json [Accept: application/json]\n";
    const std::string opened = asked + "switch w\nsubprotocol kx.entries.v1";
    const std::string badTail = "BadRequest 400: Query parameter 'tail' must be a number of lines or all";
    check("followLogEntries;name=w", opened,
          {{"", "200 {}", "^"},
           {";tail=all;cursor=", "", "^"},
           {";tail=12;cursor=c1", "", "^"},
           {";tail=12x", "", badTail},
           {";tail=", "", badTail},
           {";cursor=x", "", "BadRequest 400: Query parameter 'cursor' is no cursor"},
           {"", "404", asked + "NotFound 404: Container 'w' does not exist"}});

    world().podman = {"", 200};
    world().duringFollow = [](KxCLogEntrySink& sink) {
        EXPECT_TRUE(sink.takeState(KxCLogEntrySink::RUNNING, 0));
        EXPECT_TRUE(sink.takeEntries({{1'000'000'002, false, "a\"\\\n"}, {7, true, "\x1F \xC3\xA9"}}, "c\"2"));
        EXPECT_TRUE(sink.takeGap(5, "why", "c3"));
        EXPECT_TRUE(sink.takeGap({}, "why", "c4"));
        EXPECT_TRUE(sink.takeState(KxCLogEntrySink::EXITED, 3));
        world().sendsLeft = 1;
        EXPECT_FALSE(sink.takeState(KxCLogEntrySink::REMOVED, 0)) << "the client has gone";
    };
    const auto sent = [](const std::string& text) { return "sendText '" + text + "' -1\n"; };
    const std::string told =
        sent(R"({"state":"running","exitCode":null})") +
        sent(R"({"entries":[{"time":"1970-01-01T00:00:01.000000002Z","stream":"out","text":"a\"\\\n"},)"
             R"({"time":"1970-01-01T00:00:00.000000007Z","stream":"err","text":"\u001f é"}],"cursor":"c\"2"})") +
        sent(R"({"gap":{"bytes":5,"reason":"why"},"cursor":"c3"})") +
        sent(R"({"gap":{"bytes":null,"reason":"why"},"cursor":"c4"})") + sent(R"({"state":"exited","exitCode":3})") +
        sent(R"({"state":"removed","exitCode":null})");
    const std::string end = "session destroyed\nunregister log stream\nsocket destroyed";
    EXPECT_EQ(call("followLogEntriesSetWebSocket;name=w;tail=5;since=7;cursor=c1"),
              "register log stream w\nfollow w tail 5 since 7 cursor 'c1'\n" + told + end);
    EXPECT_THAT(call("getMetrics"), HasSubstr("\nkx_log_gaps_total 2\n"));
    world().duringFollow = [](KxCLogEntrySink&) {};
    world().podman = {"why", 503};
    EXPECT_EQ(call("followLogEntriesSetWebSocket;name=w"),
              "register log stream w\nfollow w tail null since null cursor ''\nsession destroyed\nunregister log "
              "stream\n4: The log of container 'w' cannot be followed: why\nsocket destroyed");
}
