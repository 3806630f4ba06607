// The container runtime library: the connection to Podman, compose commands, plugins and settings.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "KxJsonFwd.h"

class KxCErrorListPool;

namespace KxNTamberWebApi {
class KxCWebSocket;
}

class KxCCurlHandler {
public:
    /// HTTP method of a Podman request.
    enum class MethodType : int { GET = 0, POST = 1, DELETE = 2 };
};

class KxCCTESettings {
public:
    /// What a user can set.
    struct KxSUserSettings {
        std::int32_t tcpPort;   ///< TCP port of Podman when it is reached by TCP; not checked for its range
        std::int32_t coresNum;  ///< number of CPUs that containers may use; 0 or less for all
    };
};

namespace KxNContainer {

/// Podman's answer.
struct PodmanReply {
    std::string body;         ///< as Podman sent it; the reason when Podman could not be reached
    std::int32_t status = 0;  ///< HTTP status; 503 when Podman could not be reached
};

/// A line that a container wrote, or a piece of one: what keeps the log cuts lines of more than a few KiB.
struct KxSLogEntry {
    std::int64_t time;      ///< nanoseconds since the Unix epoch
    bool isError;           ///< from standard error; from standard output otherwise
    std::string_view text;  ///< valid UTF-8; ends with a newline exactly when the line ends here
};

/// Where the entries of a log are to begin.
struct KxSLogBegin {
    std::optional<std::uint64_t> tail;  ///< so many lines of those that are there already; none for all
    std::optional<std::int64_t> since;  ///< lines that begin then or later, in seconds since the Unix epoch
    std::string cursor;                 ///< goes on behind this place; `tail` and `since` then count for nothing
};

/// Takes the entries of a container's log as they come, on the thread that called `FollowLogEntries`. What it is given
/// is valid during the call. The operations may wait, for a client that reads slowly for instance: meanwhile nothing is
/// read. Each gives false to end the following. They may throw: that ends it too, with status 503.
///
/// A cursor is a text for KxSLogBegin, of ASCII letters, digits and "-._~:;=", at most 500 bytes. It stands for the
/// place behind everything that was given up to then. Who goes on at the last one that he has got misses nothing and
/// gets nothing twice, or is told of a gap first.
class KxCLogEntrySink {
public:
    enum State : int { RUNNING = 0, EXITED = 1, REMOVED = 2 };

    virtual ~KxCLogEntrySink() = default;
    /// At least one entry, in the order of the log, at most 64 KiB of text.
    virtual bool takeEntries(const std::vector<KxSLogEntry>& entries, const std::string& cursor) = 0;
    /// Here something of the log could not be read any more. `bytes` of it, none where that is not known.
    virtual bool takeGap(const std::optional<std::uint64_t>& bytes, const std::string& reason,
                         const std::string& cursor) = 0;
    /// The container's state: first of all, and when it has changed. `exitCode` is 0 unless it has exited. What it
    /// wrote before it exited or was removed has been given before.
    virtual bool takeState(State state, std::int32_t exitCode) = 0;
};

/// Something that happened to a container or an image, whoever did it.
struct KxSChange {
    const char* kind;              ///< "container" or "image"; a constant
    std::string action;            ///< of a container what Podman calls it; of an image add, tag, untag or remove
    std::string name;              ///< of the container or image; the id of an image without a name
    std::int64_t utcMilliseconds;  ///< since the Unix epoch
};

/// Takes changes as they come, on a thread of the library's, one at a time. Its operations return soon, throw nothing
/// and call nothing of KxCContainer.
class KxCChangeSink {
public:
    virtual ~KxCChangeSink() = default;
    virtual void takeChange(const KxSChange& change) = 0;
    /// What there is has become known: whoever has asked for it before asks again.
    virtual void takeRelist() = 0;
};

/// A container as far as it is known without asking Podman.
struct KxSKnownContainer {
    std::string name;
    std::string state;         ///< created, running, paused, exited, …
    std::uint64_t starts = 0;  ///< since it has become known
};

/// The Podman service as it was last seen.
struct KxSPodmanState {
    bool isAnswering;        ///< false when it is not started, too
    std::int64_t since;      ///< it is so, in milliseconds since the Unix epoch
    std::uint64_t restarts;  ///< how often it was started again, or found again, after it had gone
};

/// The one entry point of the library. Unless an operation says otherwise it may be called from any thread, any number
/// of calls at once, also while log streams run, and lets no exception out.
class KxCContainer {
public:
    /// One running log stream. The library's own.
    struct KxSLogStreamSession;

    enum Status : int { UNINITIALIZED = 0, INITIALIZED = 1, STARTED = 2, STOPPED = 3, FAILED = 4 };

    /// The singleton; made on the first call, lives as long as the process.
    static KxCContainer* GetInstance();

    // Life. Called from one thread. False on failure, with a level-4 log line that says what failed; the status
    // is then FAILED.

    /// Reads the settings, makes the missing directories and mounts the container tools where their image exists.
    bool init();
    /// Uses the Podman that answers, or starts one and watches it. Returns once Podman answers, or when it does not.
    bool Start();
    /// Ends all log streams, running requests and compose commands, then the Podman service if the library started it.
    /// Containers keep running. Harmless when nothing was started. After a failed Start the status stays FAILED.
    bool Stop();

    /// Whether the service is enabled by the settings; with `readAnew` the settings file is read again first.
    bool IsContainerServiceEnabled(bool readAnew);
    /// A `Status`; with `readAnew` Podman is asked first whether it still answers.
    int GetContainerServiceStatus(bool readAnew);

    // Settings. The setters return true when the settings file on disk holds the new value; on false nothing changed.
    // A file that was replaced counts as changed also when its directory could not be synced then: a level-3 line says
    // that a power cut may bring the old one back. The same holds for the plugin configuration.
    bool EnableContainerService();
    bool DisableContainerService();
    KxCCTESettings::KxSUserSettings GetContainerServiceUserSettings();
    bool SetContainerServiceUserSettings(const KxCCTESettings::KxSUserSettings& settings);
    /// Number of CPUs that this process may run on.
    std::uint32_t GetMaxAllowedCpuCoreCount();
    /// Whether the user storage can be written and has room. On false `message` (may be null) says what is wrong, and
    /// where.
    bool HasValidUserStorage(std::string* message);
    /// Walks the managed directories and rewrites the inventory file. True when it was written.
    bool TriggerInventoryTreeScan();

    /// Sends one request to Podman and returns its answer.
    ///
    /// `path` begins with "/", is relative to Podman's API root, and carries its query. `headers` are complete header
    /// lines without line ends. `body` is the request body; with `isLongRunning` and POST it is the path of a file
    /// whose bytes are the body. A long-running request has no time limit; any other ends after 120 s (a stop: its `t`
    /// plus 30 s). Blocks the caller; `Stop` ends it. A failure to reach Podman is status 503 with a readable reason as
    /// the body.
    PodmanReply ExecutePodmanRequest(const std::string& path, KxCCurlHandler::MethodType method,
                                     const std::vector<std::string>& headers, const std::string& body,
                                     bool isLongRunning);

    // Changes.

    /// Has `sink`, null for nobody, told what happens to containers and images while the library is started: within a
    /// second while Podman answers, and what happened while it did not once it does. Where events were missed it is
    /// told what makes up for them. When it returns, the sink before is not called any more.
    void SetChangeSink(KxCChangeSink* sink);
    /// All containers, in no particular order; none before the library was started. Asks nobody.
    std::vector<KxSKnownContainer> GetKnownContainers();
    /// Asks nobody.
    KxSPodmanState GetPodmanState();

    // Log streams.

    /// Makes the record of a log stream for `socket`, found by the socket until it is unregistered. The socket must
    /// stay valid until then. If the socket is closed already, the session is ended from the start.
    std::shared_ptr<KxSLogStreamSession> RegisterLogStreamSession(KxNTamberWebApi::KxCWebSocket* socket,
                                                                  const std::string& containerName);

    /// Sends a request whose answer is a container's log and passes the log on to `socket` until the stream ends:
    /// Podman ended it, the connection failed, the client closed the socket, or `Stop` was called. Returns Podman's
    /// status, or 200 when the session was ended before Podman gave one. The log goes out in joinable texts of valid
    /// UTF-8 (see KxCWebSocket::sendText) without Podman's stream framing. Blocks the calling thread, which is the only
    /// one that sends on the socket meanwhile.
    PodmanReply StreamPodmanRequest(const std::string& path, KxCCurlHandler::MethodType method,
                                    const std::vector<std::string>& headers, KxCErrorListPool& pool,
                                    std::shared_ptr<KxSLogStreamSession> session,
                                    KxNTamberWebApi::KxCWebSocket* socket);

    /// Gives the log of the container `containerName` (a name or an id) to `sink` from `begin` on, and goes on over
    /// ends and starts of the container and of Podman, until the container is removed, the session is ended
    /// (`LogStreamCloseHandler` or `Stop`) or the sink gives false. Then the status is 200. Otherwise it is Podman's
    /// when the container is not known, 400 for a cursor that is none, 503 with the reason when Podman or the log
    /// cannot be reached; the sink has then been called for nothing but, maybe, what was there before. A container
    /// whose driver keeps no log that can be read here gives a gap without bytes, and its states. Blocks the calling
    /// thread.
    PodmanReply FollowLogEntries(const std::string& containerName, const KxSLogBegin& begin, KxCLogEntrySink& sink,
                                 std::shared_ptr<KxSLogStreamSession> session);

    /// Whether `text` has the form of a cursor, so that a client can be refused early.
    static bool IsLogCursor(const std::string& text);

    /// Forgets the session of `socket`. When it returns, the library does not touch the socket any more: the close
    /// handler finds sessions under the same lock and never keeps the socket.
    void UnregisterLogStreamSession(KxNTamberWebApi::KxCWebSocket* socket);

    /// The close callback for sockets with a session: ends the session's request. `context` and `length` are not used.
    /// Harmless for a socket without a session.
    static void LogStreamCloseHandler(const void* context, std::uint32_t length, KxNTamberWebApi::KxCWebSocket* socket);

    // Compose commands on the file `fileName` of the compose-files directory. Each runs until the command has ended.
    // `result` becomes an object that always holds a text "Message" for a person. Codes: 0 done; 1 created something; 2
    // the compose tool cannot be run; 3 bad name, or not a compose file; 4 no such file; 5 the command failed; 6 it
    // timed out; 7 nothing to do; 8 Podman cannot be reached.
    int CreateCompose(const char* fileName, KxNJson::json& result);
    int StartCompose(const char* fileName, KxNJson::json& result);
    int StopCompose(const char* fileName, KxNJson::json& result);
    int RemoveCompose(const char* fileName, KxNJson::json& result);

    // Plugins. Changes take effect at the next boot of the target. Codes: 0 changed; 1 already so; 2 empty argument;
    // 3 no such plugin; 4 the configuration was not written.

    /// {"plugins": [{"name", "version", "fileName", "size", "modified", "isDeactivated"}]}, ordered by file name;
    /// `size` in bytes, `modified` in seconds since the Unix epoch.
    KxNJson::json listPlugins();
    /// Deactivates a plugin.
    int addPluginToConfig(const std::string& name, const std::string& version);
    /// Activates a plugin.
    int removePluginFromConfig(const std::string& name, const std::string& version);
    /// Drops the entry of the plugin with that file name.
    int removePluginFromConfigByFileName(const std::string& fileName);
    /// Reads the plugins directory anew.
    void scanContainerPluginsDir();

private:
    struct Impl;
    KxCContainer();
    ~KxCContainer();
    std::unique_ptr<Impl> impl;
};

}  // namespace KxNContainer
