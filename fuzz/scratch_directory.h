// A directory in memory for a fuzzer whose subject works on files.
#pragma once

#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

class ScratchDirectory {
public:
    ScratchDirectory() { std::filesystem::create_directories(root); }
    ~ScratchDirectory() { std::filesystem::remove_all(root); }
    ScratchDirectory(const ScratchDirectory&) = delete;
    ScratchDirectory& operator=(const ScratchDirectory&) = delete;

    std::string path(const std::string& name) const { return root + "/" + name; }

    void write(const std::string& name, const std::string& text) const {
        std::ofstream(path(name), std::ios::binary) << text;
    }

    std::string read(const std::string& name) const {
        std::ifstream file(path(name), std::ios::binary);
        return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    }

private:
    const std::string root = "/dev/shm/kx-fuzz-" + std::to_string(::getpid());
};
