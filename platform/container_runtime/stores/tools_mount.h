// The image that holds the container tools, mounted.
#pragma once

#include <string>

namespace KxNContainer {

/// Mounts the image read-only while it lives. One thread at a time.
class ToolsMount {
public:
    ToolsMount(std::string imagePath, std::string mountPoint);
    ~ToolsMount() { unmount(); }
    ToolsMount(const ToolsMount&) = delete;
    ToolsMount& operator=(const ToolsMount&) = delete;

    /// The tools are in place then, which they also are when something is mounted there already, or when there is no
    /// image at all. Throws std::runtime_error.
    void mount();

    /// Takes away what `mount` mounted. Containers that still run need the tools: then it stays, and the next `mount`
    /// finds it.
    void unmount();

private:
    const std::string image;
    const std::string point;
    bool isMounted = false;
};

}  // namespace KxNContainer
