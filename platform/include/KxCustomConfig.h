// The target's custom configuration: an INI file, read once.
//
// The file is /etc/kx-container-service.conf, or the one that the environment variable KX_CUSTOM_CONFIG names.
// A missing file means defaults.
#pragma once

#include <memory>
#include <string>

namespace KxNCustomConfig {

namespace KxNLog {
inline constexpr const char* pSection = "Log";
inline constexpr const char* pOptionLevel = "Level";
}  // namespace KxNLog

namespace KxNWebApi {
inline constexpr const char* pSection = "WebApi";
inline constexpr const char* pOptionAddress = "Address";
inline constexpr const char* pOptionPort = "Port";
inline constexpr const char* pOptionAuth = "Auth";
inline constexpr const char* pOptionTokenFile = "TokenFile";
inline constexpr const char* pOptionIdentitiesFile = "IdentitiesFile";
inline constexpr const char* pOptionAuditFile = "AuditFile";
inline constexpr const char* pOptionMaxConnections = "MaxConnections";
inline constexpr const char* pOptionMaxUploadBytes = "MaxUploadBytes";
inline constexpr const char* pOptionPage = "Page";
}  // namespace KxNWebApi

namespace KxNContainerRuntime {
inline constexpr const char* pSection = "ContainerRuntime";
inline constexpr const char* pOptionProfiling = "Profiling";
inline constexpr const char* pOptionPodmanTransport = "PodmanTransport";
}  // namespace KxNContainerRuntime

}  // namespace KxNCustomConfig

class KxCCustomConfig {
public:
    /// The configuration; the first call reads the file and logs what is wrong with it at level 4.
    /// Lives as long as the process. Any thread.
    static KxCCustomConfig* getInstance();

    /// The text of an option, or `defaultValue` where the file does not hold it. With `mandatory` a missing
    /// option is also a level-3 log line. Any thread.
    std::string getOption(const char* section, const char* option, const char* defaultValue, bool mandatory) const;

    /// Whether the part of the program that `section` configures may start. False when the section holds an
    /// unknown key or a bad value, or when the file has a line that belongs to no known section; `reason` then
    /// gets one line naming file, line and key. A bad value of Profiling is logged too, but leaves only the profiler
    /// off. Any thread.
    bool isUsable(const char* section, std::string* reason) const;

private:
    struct Contents;
    explicit KxCCustomConfig(std::unique_ptr<Contents> read);
    ~KxCCustomConfig();
    std::unique_ptr<Contents> contents;
};
